// What a hostile local caller hands the module: a package swapped after its check, devices,
// pipes and oversized files, broken archives, link loops, forged log lines; and what the
// programs the module starts must not inherit from their host.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <boost/filesystem.hpp>
#include <chrono>
#include <future>
#include <random>
#include <thread>

#include "SdpPromote/SdpPromoteServiceImpl.h"
#include "portal/PortalFixture.h"
#include "process/CmdPopen.h"
#include "process/ProcessControl.h"
#include "support/FaultSupport.h"

namespace {

using helion::test::parseEnvelope;
using helion::test::readFile;
namespace fs = boost::filesystem;
using Service = corvid::SdpPromoteServiceImpl;

class HostileInputs : public helion::test::PortalRootTest {
protected:
    helion::test::Envelope update(const helion::test::SignedPackage& package,
                                  const std::string& dir = "web") {
        return call(&Service::updatePortal, helion::test::updateRequest(package, dir));
    }

    // After a fault the same service object installs a good package completely.
    void expectGoodUpdateStillWorks() {
        const auto good = helion::test::signedPackage(scratch_, "good.zip",
                                                      {{"index.html", "<html/>"}, {"a.css", "a"}});
        EXPECT_EQ(update(good, "after").code, 0);
        EXPECT_EQ(portalFile("after/index.html"), "<html/>");
        EXPECT_EQ(portalFile("after/a.css"), "a");
    }
};
// Packages that break after signing: each ends in its failure's envelope, and the next good
// update still succeeds.
using PackageFaults = HostileInputs;

TEST_F(HostileInputs, APackageSwappedAfterItsCheckIsNotWhatGetsInstalled) {
    // Large enough that the check takes a while; the swap comes the moment the read closes.
    const auto good = helion::test::signedPackage(
        scratch_, "good.zip", {{"index.html", "signed"}, {"big.bin", std::string(8 << 20, 'x')}});
    const std::string evil = scratch_.str() + "/evil.zip";
    helion::test::writeZip(evil, {{"index.html", "unsigned"}, {"evil.html", "x"}});

    const int watch = inotify_init1(IN_CLOEXEC);
    ASSERT_GE(inotify_add_watch(watch, good.zip.c_str(), IN_CLOSE_NOWRITE), 0);
    auto swapper = std::async(std::launch::async, [&] {
        char event[sizeof(inotify_event) + NAME_MAX + 1];
        if (read(watch, event, sizeof event) > 0) {
            rename(evil.c_str(), good.zip.c_str());
        }
    });
    EXPECT_EQ(update(good).code, 0);
    swapper.wait();
    close(watch);
    EXPECT_EQ(portalFile("web/index.html"), "signed");
    EXPECT_FALSE(fs::exists(root_ / "web/evil.html"));
}

TEST_F(HostileInputs, OnlyRegularFilesWithinTheLimitsAreRead) {
    const auto good = helion::test::signedPackage(scratch_, "good.zip", {{"index.html", "new"}});
    plant("web/index.html", "old");
    const std::string fifo = scratch_.str() + "/fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    const std::string bigZip = scratch_.str() + "/big.zip";
    fs::copy_file(good.zip, bigZip);
    fs::resize_file(bigZip, Service::kMaxPackageBytes + 1);  // sparse: nothing is written
    const std::string longSig = scratch_.str() + "/long.sig";
    std::ofstream(longSig, std::ios::binary)
        << readFile(good.sig) << std::string(Service::kMaxSignatureBytes, 'x');
    const std::string larger = "larger than ";

    const std::string fifoLink = scratch_.str() + "/fifo.zip", goodLink = scratch_.str() + "/l.zip";
    fs::create_symlink(fifo, fifoLink);
    fs::create_symlink(good.zip, goodLink);
    // Opening is itself an act on a device or a pipe: nothing here may open the pipe at all.
    const int opens = inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
    ASSERT_GE(inotify_add_watch(opens, fifo.c_str(), IN_OPEN), 0);
    // Root reads every file, so "unreadable" is a directory, or a path through a plain file.
    const std::string directory = scratch_.str() + "/a-directory", through = good.zip + "/inside";
    fs::create_directories(directory);
    const auto refused = [](const std::string& path, const std::string& why) {
        return "read:" + path + " refused; Reason: " + why;
    };
    const struct {
        std::string zip, sig, failed, logged;
    } cases[] = {
        {"/dev/zero", good.sig, "/dev/zero", refused("/dev/zero", "not a regular file")},
        {fifo, good.sig, fifo, refused(fifo, "not a regular file")},
        {fifoLink, good.sig, fifoLink, refused(fifoLink, "not a regular file")},
        {good.zip, fifo, fifo, refused(fifo, "not a regular file")},
        {directory, good.sig, directory, refused(directory, "not a regular file")},
        {good.zip, directory, directory, refused(directory, "not a regular file")},
        {through, good.sig, through, through + " not exist; Reason: reason："},
        {good.zip, through, through, through + " not exist; Reason: reason："},
        {bigZip, good.sig, bigZip,
         refused(bigZip, larger + std::to_string(Service::kMaxPackageBytes))},
        {good.zip, longSig, longSig,
         refused(longSig, larger + std::to_string(Service::kMaxSignatureBytes))},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.zip + " " + c.sig);
        log_.clear();
        EXPECT_EQ(update({c.zip, c.sig}).code, 1);
        EXPECT_EQ(parseEnvelope(result_).message, "verify signature error");
        EXPECT_TRUE(log_.contains(c.logged));
        EXPECT_TRUE(log_.contains("read:" + c.failed + " failed"));
        EXPECT_EQ(portalFile("web/index.html"), "old");
    }
    // In a copy source, a pipe and a link to it are failed files; the source stays.
    scratch_.write("src/a.css", "a");
    fs::create_symlink(fifo, scratch_.path() / "src/x.css");
    ASSERT_EQ(mkfifo((scratch_.str() + "/src/y.css").c_str(), 0600), 0);
    EXPECT_EQ(
        call(&Service::copyPortalDir, helion::test::copyRequest(scratch_.str() + "/src", "c")).code,
        0);
    EXPECT_EQ(log_.matching("copy file error; Reason: not a regular file").size(), 2u);
    EXPECT_EQ(portalFile("c/a.css"), "a");
    char event[sizeof(inotify_event) + NAME_MAX + 1];
    EXPECT_LT(read(opens, event, sizeof event), 0);
    close(open(fifo.c_str(), O_RDONLY | O_NONBLOCK));  // the watch does see an open
    EXPECT_GT(read(opens, event, sizeof event), 0);
    close(opens);

    EXPECT_EQ(update({goodLink, good.sig}).code, 0);  // a link to a regular file is followed
    EXPECT_EQ(portalFile("web/index.html"), "new");
}

TEST_F(PackageFaults, TruncatedArchivesAreDecompressionErrorsAfterTheOldPortalIsGone) {
    const std::string zip = (scratch_.path() / "cut.zip").string();
    helion::test::writeZip(zip, {{"index.html", std::string(4000, 'x')}, {"b.css", "b"}});
    const std::string whole = readFile(zip);
    // Cut inside the entry data, inside the central directory, and just before the end record.
    for (const std::size_t keep : {whole.size() / 3, whole.size() - 40, whole.size() - 22}) {
        SCOPED_TRACE(keep);
        plant("web/old.css");
        std::ofstream(zip, std::ios::binary | std::ios::trunc) << whole.substr(0, keep);
        const auto envelope = update(helion::test::signAsItStands(zip));
        EXPECT_EQ(envelope.code, 2);
        EXPECT_EQ(envelope.message, "decompression error");
        EXPECT_TRUE(fs::is_directory(root_ / "web"));
        EXPECT_FALSE(fs::exists(root_ / "web/old.css"));
        EXPECT_TRUE(log_.contains("Failed to open zip file:" + zip));
    }
    expectGoodUpdateStillWorks();
}

TEST_F(PackageFaults, CorruptEntryDataIsWrittenAsItInflatesAndTheOtherEntriesAreIntact) {
    const std::string stored(600, 's');
    const std::string zip = (scratch_.path() / "crc.zip").string();
    helion::test::writeZip(zip, {{"stored.css", stored, false},
                                 {"deflated.css", std::string(3000, 'd')},
                                 {"last.css", "last"}});
    std::string bytes = readFile(zip);
    // Entry data follows its name in the local header (no extra field): one byte of the stored
    // entry, and one inside the deflated entry's stream.
    const auto dataOf = [&bytes](const std::string& name) {
        return bytes.find(name) + name.size();
    };
    bytes[dataOf("stored.css") + 100] = 'X';
    const auto deflatedAt = dataOf("deflated.css");
    bytes[deflatedAt + 2] = static_cast<char>(bytes[deflatedAt + 2] ^ 0x55);
    std::ofstream(zip, std::ios::binary | std::ios::trunc) << bytes;

    // The signature is made over the corrupt archive: only extraction is under test here.
    EXPECT_EQ(update(helion::test::signAsItStands(zip)).code, 0);
    std::string expected = stored;
    expected[100] = 'X';
    EXPECT_EQ(portalFile("web/stored.css"), expected);
    EXPECT_TRUE(fs::is_regular_file(root_ / "web/deflated.css"));
    EXPECT_LE(fs::file_size(root_ / "web/deflated.css"), 3000u);
    EXPECT_EQ(portalFile("web/last.css"), "last");
    expectGoodUpdateStillWorks();
}

TEST_F(PackageFaults, ABrokenStreamLeavesWhatReadingItAKilobyteAtATimeLeaves) {
    // Bytes inflated before the break, the block that breaks the stream, and what the 1 KiB loop
    // writes: a read that fails keeps none of its bytes, and at a kilobyte boundary a bad block
    // type or code fails the read that fills it while a distance too far back fails the next.
    // The last rows break inside and at the end of a 256 KiB read.
    const std::string badType("\x06", 1), badCode("\x1A\x03", 2), tooFar("\x02\xDE\xFF\x0F", 4);
    const struct {
        std::size_t good;
        std::string tail;
        std::size_t written;
    } cases[] = {{2048, badType, 1024},     {3000, badType, 2048},    {2048, tooFar, 2048},
                 {3000, tooFar, 2048},      {2048, badCode, 1024},    {264192, badCode, 263168},
                 {267144, badType, 266240}, {262144, badCode, 261120}};
    std::minstd_rand random(20);
    std::vector<std::string> inflated;
    std::vector<helion::test::ZipEntry> entries;
    for (const auto& c : cases) {
        std::string data(c.good, '\0');
        for (char& byte : data) {
            byte = static_cast<char>('a' + random() % 8);
        }
        entries.push_back({"e" + std::to_string(entries.size()),
                           helion::test::deflateOpenEnded(data) + c.tail + '\0', true, nullptr,
                           c.good + 4096});
        inflated.push_back(std::move(data));
    }
    const std::string zip = (scratch_.path() / "broken.zip").string();
    helion::test::writeZip(zip, entries);
    EXPECT_EQ(update(helion::test::signAsItStands(zip)).code, 0);
    for (std::size_t i = 0; i < entries.size(); ++i) {
        EXPECT_EQ(portalFile("web/" + entries[i].name), inflated[i].substr(0, cases[i].written))
            << entries[i].name;
    }
}

TEST_F(HostileInputs, LinksBackUpTheTreeAreNotFollowedAndOtherLinksAre) {
    const fs::path src = scratch_.path() / "src";
    scratch_.write("src/a.css", "a");
    scratch_.write("src/shared/b.css", "b");
    fs::create_directory_symlink(".", src / "l1");
    fs::create_directory_symlink("..", src / "shared/up");
    fs::create_directory_symlink("shared", src / "again");
    fs::create_directory_symlink(root_ / "web", src / "into");  // would grow as it is copied
    EXPECT_EQ(call(&Service::copyPortalDir, helion::test::copyRequest(src.string(), "web")).code,
              0);
    for (const char* copied : {"a.css", "shared/b.css", "again/b.css"}) {
        EXPECT_EQ(portalFile(std::string("web/") + copied), fs::path(copied).stem().string());
    }
    EXPECT_FALSE(fs::exists(root_ / "web/l1/a.css"));
    EXPECT_FALSE(fs::exists(root_ / "web/shared/up/a.css"));
    // l1, shared/up, and again/up (which leads back to src again).
    EXPECT_EQ(log_.matching("; Reason: a link back up the tree").size(), 3u);
    EXPECT_TRUE(log_.contains("skip dir:" + (src / "into").string() + "; Reason: a link into"));
}

TEST_F(HostileInputs, RequestTextCannotForgeALogLine) {
    // JSON escapes: the module receives a newline, a carriage return, a tab and a U+0001.
    const std::string forged =
        "/x.zip\\n2026-11-22 10:00:00.000 [info] [HelionPromote] forged\\r\\t\\u0001";
    EXPECT_EQ(update({forged, "/y.sig"}).code, 1);
    EXPECT_TRUE(log_.contains(
        R"(srcZip:/x.zip\n2026-11-22 10:00:00.000 [info] [HelionPromote] forged\r\t\x01, signFile:/y.sig after to local8bit)"));
    for (const auto& line : log_.lines()) {
        EXPECT_EQ(line.text.find_first_of("\n\r\x01"), std::string::npos) << line.text;
    }
}

// What a shell run by the module holds: those of fds 3 to 9 and 77 it has open, its signal masks.
// Builtins only: a shell waiting for a child of its own would show that wait's signal mask.
constexpr const char* kReport =
    "for fd in 3 4 5 6 7 8 9 77; do [ -e /proc/$$/fd/$fd ] && echo fd$fd; done; "
    "while read -r key value; do case $key in SigBlk:|SigIgn:) echo $key$value;; esac; "
    "done < /proc/$$/status";

void expectNothingInherited(const std::string& report) {
    SCOPED_TRACE(report);
    EXPECT_EQ(report.find("fd"), std::string::npos);
    const auto mask = [&](const std::string& name) {
        const auto at = report.find(name + ":");
        return at == std::string::npos ? ~0ull : std::stoull(report.substr(at + 7), nullptr, 16);
    };
    EXPECT_EQ(mask("SigBlk") & (1ull << (SIGTERM - 1)), 0u);
    EXPECT_EQ(mask("SigIgn") & (1ull << (SIGPIPE - 1)), 0u);
}

// The host ignores SIGPIPE, blocks its stop signals and holds descriptors without close-on-exec;
// none of that may reach a child.
TEST(ChildProcesses, GetOnlyTheStandardStreamsAndDefaultSignals) {
    const int leaked = dup2(open("/dev/null", O_RDONLY), 77);
    ASSERT_EQ(leaked, 77);
    signal(SIGPIPE, SIG_IGN);
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &blocked, nullptr);

    std::string out;
    EXPECT_TRUE(corvid::process::macos::details::cmdPopen(kReport, out));
    expectNothingInherited(out);

    helion::test::TempDir dir;
    const std::string tool = dir.write("tool", std::string("#!/bin/sh\nexec > $0.out.tmp\n") +
                                                   kReport + "\nmv $0.out.tmp $0.out\n");
    fs::permissions(tool, fs::owner_all);
    EXPECT_TRUE(corvid::process::macos::details::startwithHighPermission(tool));
    for (int tick = 0; tick < 600 && !fs::exists(tool + ".out"); ++tick) {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    expectNothingInherited(readFile(tool + ".out"));
    close(leaked);
    pthread_sigmask(SIG_UNBLOCK, &blocked, nullptr);
}

}  // namespace

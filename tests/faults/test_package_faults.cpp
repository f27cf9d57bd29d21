// Packages and inputs that break after signing or cannot be read: each ends in the specified
// envelope, and the next good update still succeeds.
#include <gtest/gtest.h>

#include <boost/filesystem.hpp>
#include <fstream>

#include "faults/FaultSupport.h"
#include "portal/PortalFixture.h"

namespace {

using helion::test::parseEnvelope;
using helion::test::readFile;
using helion::test::SignedPackage;
using helion::test::updateRequest;
namespace fs = boost::filesystem;

class PackageFaults : public helion::test::PortalRootTest {
protected:
    helion::test::Envelope update(const SignedPackage& package, const std::string& portalDir) {
        service_.updatePortal(result_, updateRequest(package, portalDir));
        return parseEnvelope(result_);
    }

    // After a fault the same service object installs a good package completely.
    void expectGoodUpdateStillWorks() {
        const auto good = helion::test::signedPackage(scratch_, "good.zip",
                                                      {{"index.html", "<html/>"}, {"a.css", "a"}});
        EXPECT_EQ(update(good, "after").code, 0);
        EXPECT_EQ(readFile((root_ / "after/index.html").string()), "<html/>");
        EXPECT_EQ(readFile((root_ / "after/a.css").string()), "a");
    }

    void overwrite(const std::string& path, const std::string& bytes) {
        std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
    }
};

TEST_F(PackageFaults, TruncatedArchivesAreDecompressionErrorsAfterTheOldPortalIsGone) {
    const std::string zip = (scratch_.path() / "cut.zip").string();
    helion::test::writeZip(zip, {{"index.html", std::string(4000, 'x')}, {"b.css", "b"}});
    const std::string whole = readFile(zip);
    // Cut inside the entry data, inside the central directory, and just before the end record.
    for (const std::size_t keep : {whole.size() / 3, whole.size() - 40, whole.size() - 22}) {
        SCOPED_TRACE(keep);
        plant("web/old.css");
        overwrite(zip, whole.substr(0, keep));
        const auto envelope = update(helion::test::signAsItStands(zip), "web");
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
    overwrite(zip, bytes);

    // The signature is made over the corrupt archive: only extraction is under test here.
    EXPECT_EQ(update(helion::test::signAsItStands(zip), "web").code, 0);
    std::string expected = stored;
    expected[100] = 'X';
    EXPECT_EQ(readFile((root_ / "web/stored.css").string()), expected);
    EXPECT_TRUE(fs::is_regular_file(root_ / "web/deflated.css"));
    EXPECT_LE(fs::file_size(root_ / "web/deflated.css"), 3000u);
    EXPECT_EQ(readFile((root_ / "web/last.css").string()), "last");
    expectGoodUpdateStillWorks();
}

}  // namespace

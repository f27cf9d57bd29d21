// Unpacks a portal package below a directory. Entry names are trusted as they stand: the package
// has passed the signature check before it gets here, and updatePortal extracts the very bytes
// that were checked.
#include <minizip/unzip.h>
#include <unistd.h>

#include <boost/filesystem.hpp>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "SdpPromote/InstalledModes.h"
#include "SdpPromote/MemoryArchive.h"
#include "SdpPromote/SdpPromoteServiceImpl.h"
#include "common/Log.h"
#include "common/ScopeGuard.h"

namespace corvid {

namespace {

// Every line is logged under the operation's name, whichever way the archive was opened.
constexpr const char* kFunction = "unZipToFile";
// What a damaged entry leaves on disk is what reading it this many bytes at a time leaves.
constexpr unsigned kChunkSize = 1024;
// Entries are read this many bytes at a time and written straight from the read buffer (the
// output files have no stdio buffer): zlib inflates on its fast path, most portal files take one
// read and one write call, and nothing is copied between inflating and writing.
constexpr unsigned kReadSize = 256 * 1024;

bool isDirectoryEntry(const std::string& name) {
    return !name.empty() && (name.back() == '/' || name.back() == '\\');
}

// The current entry's name, whole whatever its length: the info call is asked for the length
// first. Taken up to a NUL, like any C string name.
bool currentEntryName(unzFile zip, std::string& name) {
    unz_file_info64 info;
    if (unzGetCurrentFileInfo64(zip, &info, nullptr, 0, nullptr, 0, nullptr, 0) != UNZ_OK) {
        return false;
    }
    std::vector<char> buffer(info.size_filename + 1, '\0');
    if (unzGetCurrentFileInfo64(zip, nullptr, buffer.data(), buffer.size(), nullptr, 0, nullptr,
                                0) != UNZ_OK) {
        return false;
    }
    name = buffer.data();
    return true;
}

// Inflates the open entry into out, size bytes a time through buffer. False when a read fails:
// what came before it is written, the failing read's bytes are not.
bool copyEntry(unzFile zip, FILE* out, char* buffer, unsigned size) {
    int read = 0;
    while ((read = unzReadCurrentFile(zip, buffer, size)) > 0) {
        std::fwrite(buffer, 1, static_cast<std::size_t>(read), out);
    }
    return read == 0;
}

// Extracts the current entry again from its start, kChunkSize bytes a time. A failing read keeps
// none of what it inflated, and where zlib notices damage depends on where its output buffer
// ends (at a kilobyte boundary some errors show in the read that fills it, others in the next),
// so no position read from minizip after a large read tells where the 1 KiB loop stops.
void reextractInChunks(unzFile zip, FILE* out, char* buffer) {
    unzCloseCurrentFile(zip);
    std::fflush(out);
    if (::ftruncate(::fileno(out), 0) != 0 || std::fseek(out, 0, SEEK_SET) != 0) {
        return;
    }
    if (unzOpenCurrentFile(zip) == UNZ_OK) {
        copyEntry(zip, out, buffer, kChunkSize);
    }
}

// Walks every entry of an opened archive (zip may be null: it could not be opened).
bool extractArchive(const std::string& zipPath, unzFile zip, const std::string& destDir) {
    if (zip == nullptr) {
        HP_LOG_AT(spdlog::level::warn, kFunction, __LINE__, "Failed to open zip file:{}{}", zipPath,
                  "");
        return false;
    }
    ScopeGuard closeZip([zip] { unzClose(zip); });

    unz_global_info globalInfo;
    if (unzGetGlobalInfo(zip, &globalInfo) != UNZ_OK) {
        HP_LOG_AT(spdlog::level::warn, kFunction, __LINE__,
                  "Failed to get global info of zip file:{}{}", zipPath, "");
        return false;
    }
    HP_LOG_AT(spdlog::level::info, kFunction, __LINE__, "Number of files in zip:{}",
              globalInfo.number_entry);

    if (unzGoToFirstFile(zip) != UNZ_OK) {
        HP_LOG_AT(spdlog::level::warn, kFunction, __LINE__,
                  "Failed to go to first file in zip file:{}{}", zipPath, "");
        return false;
    }

    std::string name;
    // Not zeroed: only bytes minizip inflated into it are ever written.
    const std::unique_ptr<char[]> buffer(new char[kReadSize]);
    do {
        if (!currentEntryName(zip, name)) {
            HP_LOG_AT(spdlog::level::warn, kFunction, __LINE__,
                      "Failed to get current file info in zip file:{}{}", zipPath, "");
            continue;
        }
        if (Logger::GetInstancePtr()->level() <= spdlog::level::debug) {
            HP_LOG_AT(spdlog::level::debug, kFunction, __LINE__, "Extracting file:{}", name);
        }
        const std::string outPath = destDir + "/" + name;
        // Directories appear only as parents of the files inside them.
        if (isDirectoryEntry(name)) {
            continue;
        }

        const auto parent = boost::filesystem::path(outPath).parent_path();
        boost::system::error_code ec;
        portal::createInstalledDirectories(parent, ec);
        if (ec) {
            HP_LOG_AT(spdlog::level::warn, kFunction, __LINE__,
                      "Failed to create dir:{}; Reason: {}", parent.string(), ec.message());
            continue;
        }

        FileDescriptor created = portal::createInstalledFile(outPath);
        FILE* out = created ? ::fdopen(created.get(), "wb") : nullptr;
        if (out == nullptr) {
            HP_LOG_AT(spdlog::level::warn, kFunction, __LINE__, "Failed to create file:{}{}",
                      outPath, "");
            continue;
        }
        created.release();  // closed with out
        ScopeGuard closeOut([out] { std::fclose(out); });
        std::setvbuf(out, nullptr, _IONBF, 0);

        if (unzOpenCurrentFile(zip) != UNZ_OK) {
            // The empty output file stays behind.
            HP_LOG_AT(spdlog::level::warn, kFunction, __LINE__,
                      "Failed to open current file in zip file:{}{}", zipPath, "");
            continue;
        }
        // A read error ends the entry like its end does, with what the 1 KiB loop would have
        // written; the CRC check on close is not consulted.
        if (!copyEntry(zip, out, buffer.get(), kReadSize)) {
            reextractInChunks(zip, out, buffer.get());
        }
        unzCloseCurrentFile(zip);
    } while (unzGoToNextFile(zip) == UNZ_OK);
    return true;
}

}  // namespace

bool SdpPromoteServiceImpl::unZipToFile(const std::string& zipPath, const std::string& destDir) {
    return extractArchive(zipPath, unzOpen(zipPath.c_str()), destDir);
}

bool SdpPromoteServiceImpl::unZipToFile(const std::string& zipPath, const std::string& zipData,
                                        const std::string& destDir) {
    portal::MemoryArchive archive(zipData);
    return extractArchive(zipPath, archive.open(), destDir);
}

}  // namespace corvid

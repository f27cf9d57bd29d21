// Unpacks a portal package below a directory. Entry names are trusted as they stand: the package
// has passed the signature check before it gets here, and updatePortal extracts the very bytes
// that were checked.
#include <minizip/unzip.h>

#include <boost/filesystem.hpp>
#include <cstdio>
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
constexpr std::size_t kCopyBufferSize = 1024;
// Output files are written through a stdio buffer of this size: with the default one, every
// few 1024-byte chunks cost a write call.
constexpr std::size_t kOutputBufferSize = 64 * 1024;

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
    char buffer[kCopyBufferSize];
    // Declared before any file that uses it, so it outlives every fclose below.
    std::vector<char> outputBuffer(kOutputBufferSize);
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
        std::setvbuf(out, outputBuffer.data(), _IOFBF, outputBuffer.size());

        if (unzOpenCurrentFile(zip) != UNZ_OK) {
            // The empty output file stays behind.
            HP_LOG_AT(spdlog::level::warn, kFunction, __LINE__,
                      "Failed to open current file in zip file:{}{}", zipPath, "");
            continue;
        }
        // A read error ends the entry like its end does; the CRC check on close is not consulted.
        int read = 0;
        while ((read = unzReadCurrentFile(zip, buffer, sizeof buffer)) > 0) {
            std::fwrite(buffer, 1, static_cast<std::size_t>(read), out);
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

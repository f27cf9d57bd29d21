// Unpacks a portal package below a directory. Entry names are trusted as they stand: the package
// has passed the signature check before it gets here.
#include <minizip/unzip.h>

#include <boost/filesystem.hpp>
#include <cstdio>
#include <string>
#include <vector>

#include "SdpPromote/SdpPromoteServiceImpl.h"
#include "common/Log.h"
#include "common/ScopeGuard.h"

namespace corvid {

namespace {

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

}  // namespace

bool SdpPromoteServiceImpl::unZipToFile(const std::string& zipPath, const std::string& destDir) {
    unzFile zip = unzOpen(zipPath.c_str());
    if (zip == nullptr) {
        HP_LOG(spdlog::level::warn, "Failed to open zip file:{}{}", zipPath, "");
        return false;
    }
    ScopeGuard closeZip([zip] { unzClose(zip); });

    unz_global_info globalInfo;
    if (unzGetGlobalInfo(zip, &globalInfo) != UNZ_OK) {
        HP_LOG(spdlog::level::warn, "Failed to get global info of zip file:{}{}", zipPath, "");
        return false;
    }
    HP_LOG(spdlog::level::info, "Number of files in zip:{}", globalInfo.number_entry);

    if (unzGoToFirstFile(zip) != UNZ_OK) {
        HP_LOG(spdlog::level::warn, "Failed to go to first file in zip file:{}{}", zipPath, "");
        return false;
    }

    std::string name;
    char buffer[kCopyBufferSize];
    // Declared before any file that uses it, so it outlives every fclose below.
    std::vector<char> outputBuffer(kOutputBufferSize);
    do {
        if (!currentEntryName(zip, name)) {
            HP_LOG(spdlog::level::warn, "Failed to get current file info in zip file:{}{}", zipPath,
                   "");
            continue;
        }
        if (Logger::GetInstancePtr()->level() <= spdlog::level::debug) {
            HP_LOG(spdlog::level::debug, "Extracting file:{}", name);
        }
        const std::string outPath = destDir + "/" + name;
        // Directories appear only as parents of the files inside them.
        if (isDirectoryEntry(name)) {
            continue;
        }

        const auto parent = boost::filesystem::path(outPath).parent_path();
        boost::system::error_code ec;
        boost::filesystem::create_directories(parent, ec);
        if (ec) {
            HP_LOG(spdlog::level::warn, "Failed to create dir:{}; Reason: {}", parent.string(),
                   ec.message());
            continue;
        }

        FILE* out = std::fopen(outPath.c_str(), "wb");
        if (out == nullptr) {
            HP_LOG(spdlog::level::warn, "Failed to create file:{}{}", outPath, "");
            continue;
        }
        ScopeGuard closeOut([out] { std::fclose(out); });
        std::setvbuf(out, outputBuffer.data(), _IOFBF, outputBuffer.size());

        if (unzOpenCurrentFile(zip) != UNZ_OK) {
            // The empty output file stays behind.
            HP_LOG(spdlog::level::warn, "Failed to open current file in zip file:{}{}", zipPath,
                   "");
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

}  // namespace corvid

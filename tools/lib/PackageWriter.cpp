#include "tools/lib/PackageWriter.h"

#include <minizip/zip.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <array>
#include <boost/filesystem.hpp>
#include <cstdio>
#include <memory>

#include "tools/lib/FileIo.h"

namespace helion::tools {

namespace fs = boost::filesystem;

namespace {

void collect(const fs::path& root, const fs::path& dir, const fs::path& exclude,
             std::vector<std::string>& out) {
    boost::system::error_code error;
    fs::directory_iterator it(dir, error);
    if (error) {
        throw ToolError("cannot list '" + dir.string() + "': " + error.message());
    }
    for (; it != fs::directory_iterator(); it.increment(error)) {
        if (error) {
            throw ToolError("cannot list '" + dir.string() + "': " + error.message());
        }
        const fs::path path = it->path();
        const auto status = fs::symlink_status(path, error);
        if (error) {
            throw ToolError("cannot read '" + path.string() + "': " + error.message());
        }
        if (fs::is_directory(status)) {
            collect(root, path, exclude, out);
        } else if (fs::is_regular_file(status)) {
            if (!exclude.empty() && fs::equivalent(path, exclude, error)) {
                continue;
            }
            const std::string name = path.lexically_relative(root).generic_string();
            if (name.size() > kMaxEntryName) {
                throw ToolError("'" + name + "' is longer than " + std::to_string(kMaxEntryName) +
                                " bytes; the module cannot extract it");
            }
            out.push_back(name);
        } else {
            throw ToolError("'" + path.string() +
                            "' is not a regular file or directory; packages hold plain files only");
        }
    }
}

struct ZipClose {
    void operator()(zipFile zip) const { zipClose(zip, nullptr); }
};

void addEntry(zipFile zip, const std::string& name, const fs::path& source, std::uint64_t zip64From,
              PackSummary& summary) {
    std::unique_ptr<FILE, int (*)(FILE*)> in(std::fopen(source.c_str(), "rb"), &std::fclose);
    if (!in) {
        throw ToolError("cannot read '" + source.string() + "'");
    }
    boost::system::error_code error;
    const auto size = fs::file_size(source, error);
    zip_fileinfo info{};
    // Fixed timestamps: the same tree always packs to the same bytes, so its signature is stable.
    info.tmz_date.tm_year = 1980;
    info.tmz_date.tm_mon = 0;
    info.tmz_date.tm_mday = 1;
    const int zip64 = !error && size >= zip64From ? 1 : 0;
    if (zipOpenNewFileInZip64(zip, name.c_str(), &info, nullptr, 0, nullptr, 0, nullptr, Z_DEFLATED,
                              Z_BEST_COMPRESSION, zip64) != ZIP_OK) {
        throw ToolError("cannot add '" + name + "' to the package");
    }
    std::array<char, 64 * 1024> buffer{};
    std::size_t got = 0;
    while ((got = std::fread(buffer.data(), 1, buffer.size(), in.get())) > 0) {
        if (zipWriteInFileInZip(zip, buffer.data(), static_cast<unsigned>(got)) != ZIP_OK) {
            throw ToolError("cannot write '" + name + "' into the package");
        }
        summary.bytes += got;
    }
    if (std::ferror(in.get())) {
        throw ToolError("cannot read '" + source.string() + "'");
    }
    if (zipCloseFileInZip(zip) != ZIP_OK) {
        throw ToolError("cannot finish '" + name + "' in the package");
    }
}

}  // namespace

std::vector<std::string> listPortalFiles(const std::string& dir, const std::string& exclude) {
    boost::system::error_code error;
    if (!fs::is_directory(dir, error)) {
        throw ToolError("'" + dir + "' is not a directory");
    }
    std::vector<std::string> names;
    collect(fs::path(dir), fs::path(dir), fs::path(exclude), names);
    std::sort(names.begin(), names.end());
    return names;
}

PackSummary packPortal(const std::string& dir, const std::string& zipPath,
                       std::uint64_t zip64From) {
    PackSummary summary;
    summary.entries = listPortalFiles(dir, zipPath);
    if (summary.entries.empty()) {
        throw ToolError("'" + dir + "' holds no files; the module refuses an empty package");
    }
    std::string pattern = zipPath + ".tmp-XXXXXX";
    std::vector<char> tempName(pattern.begin(), pattern.end());
    tempName.push_back('\0');
    const int fd = ::mkstemp(tempName.data());
    if (fd < 0) {
        throw ToolError("cannot write '" + zipPath + "'");
    }
    ::close(fd);
    const std::string temp(tempName.data());
    RemoveOnFailure cleanup(temp);
    {
        std::unique_ptr<void, ZipClose> zip(zipOpen64(temp.c_str(), APPEND_STATUS_CREATE));
        if (!zip) {
            throw ToolError("cannot create '" + zipPath + "'");
        }
        for (const auto& name : summary.entries) {
            addEntry(zip.get(), name, fs::path(dir) / name, zip64From, summary);
        }
        if (zipClose(zip.release(), nullptr) != ZIP_OK) {
            throw ToolError("cannot finish '" + zipPath + "'");
        }
    }
    ::chmod(temp.c_str(), 0644);
    if (std::rename(temp.c_str(), zipPath.c_str()) != 0) {
        throw ToolError("cannot write '" + zipPath + "'");
    }
    cleanup.release();
    return summary;
}

}  // namespace helion::tools

#pragma once
// minizip's file functions over bytes already in memory: a package is extracted from the very
// buffer its signature was checked on, with no second open of its path and no temporary copy.

#include <minizip/unzip.h>

#include <string>

namespace corvid::portal {

class MemoryArchive {
public:
    /// data must outlive every handle opened from this object.
    explicit MemoryArchive(const std::string& data);

    MemoryArchive(const MemoryArchive&) = delete;
    MemoryArchive& operator=(const MemoryArchive&) = delete;

    /// An unz handle over the bytes, or null when they are not a readable archive.
    unzFile open();

private:
    friend struct MemoryArchiveIo;

    const std::string& data_;
    ZPOS64_T position_ = 0;
    zlib_filefunc64_def functions_{};
};

}  // namespace corvid::portal

#include "SdpPromote/MemoryArchive.h"

#include <cstring>

namespace corvid::portal {

// The callbacks minizip calls; the opaque pointer is the archive, which is also the stream.
struct MemoryArchiveIo {
    static MemoryArchive& archive(voidpf opaque) { return *static_cast<MemoryArchive*>(opaque); }

    static voidpf ZCALLBACK open(voidpf opaque, const void* /*name*/, int mode) {
        // Read only: the bytes are the verified package and are never written.
        if ((mode & ZLIB_FILEFUNC_MODE_READWRITEFILTER) != ZLIB_FILEFUNC_MODE_READ) {
            return nullptr;
        }
        archive(opaque).position_ = 0;
        return opaque;
    }

    static uLong ZCALLBACK read(voidpf opaque, voidpf /*stream*/, void* buffer, uLong size) {
        MemoryArchive& self = archive(opaque);
        const ZPOS64_T length = self.data_.size();
        if (self.position_ >= length) {
            return 0;
        }
        const ZPOS64_T left = length - self.position_;
        const uLong count = left < size ? static_cast<uLong>(left) : size;
        std::memcpy(buffer, self.data_.data() + self.position_, count);
        self.position_ += count;
        return count;
    }

    static uLong ZCALLBACK write(voidpf, voidpf, const void*, uLong) { return 0; }

    static ZPOS64_T ZCALLBACK tell(voidpf opaque, voidpf /*stream*/) {
        return archive(opaque).position_;
    }

    static long ZCALLBACK seek(voidpf opaque, voidpf /*stream*/, ZPOS64_T offset, int origin) {
        MemoryArchive& self = archive(opaque);
        const ZPOS64_T length = self.data_.size();
        ZPOS64_T base = 0;
        switch (origin) {
            case ZLIB_FILEFUNC_SEEK_SET:
                base = 0;
                break;
            case ZLIB_FILEFUNC_SEEK_CUR:
                base = self.position_;
                break;
            case ZLIB_FILEFUNC_SEEK_END:
                base = length;
                break;
            default:
                return -1;
        }
        // Offsets come from the archive itself: one past the end is refused, not wrapped.
        if (offset > length - base) {
            return -1;
        }
        self.position_ = base + offset;
        return 0;
    }

    static int ZCALLBACK close(voidpf, voidpf) { return 0; }
    static int ZCALLBACK error(voidpf, voidpf) { return 0; }
};

MemoryArchive::MemoryArchive(const std::string& data) : data_(data) {
    functions_.zopen64_file = &MemoryArchiveIo::open;
    functions_.zread_file = &MemoryArchiveIo::read;
    functions_.zwrite_file = &MemoryArchiveIo::write;
    functions_.ztell64_file = &MemoryArchiveIo::tell;
    functions_.zseek64_file = &MemoryArchiveIo::seek;
    functions_.zclose_file = &MemoryArchiveIo::close;
    functions_.zerror_file = &MemoryArchiveIo::error;
    functions_.opaque = this;
}

unzFile MemoryArchive::open() {
    return unzOpen2_64(this, &functions_);
}

}  // namespace corvid::portal

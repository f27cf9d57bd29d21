// A file system whose reads never answer, like a hard NFS mount whose server died: every name is
// a 1 MiB file that opens, and no read of it ever returns. Ends, failing every pending read, when
// it is killed. Usage: hanging_fs MOUNTPOINT
#define FUSE_USE_VERSION 34
#include <fuse3/fuse_lowlevel.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {

constexpr fuse_ino_t kFile = 2;

struct stat attributes(fuse_ino_t inode) {
    struct stat status {};
    status.st_ino = inode;
    status.st_nlink = 1;
    status.st_mode = inode == FUSE_ROOT_ID ? (S_IFDIR | 0755) : (S_IFREG | 0644);
    status.st_size = inode == FUSE_ROOT_ID ? 0 : (1 << 20);
    return status;
}

void lookup(fuse_req_t request, fuse_ino_t, const char*) {
    fuse_entry_param entry{};
    entry.ino = kFile;
    entry.attr = attributes(kFile);
    fuse_reply_entry(request, &entry);
}

void getattr(fuse_req_t request, fuse_ino_t inode, fuse_file_info*) {
    const struct stat status = attributes(inode);
    fuse_reply_attr(request, &status, 0);
}

void open(fuse_req_t request, fuse_ino_t, fuse_file_info* info) {
    info->direct_io = 1;  // every read reaches read() below, none is served from a cache
    fuse_reply_open(request, info);
}

void read(fuse_req_t, fuse_ino_t, size_t, off_t, fuse_file_info*) {
    // Never answered.
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: hanging_fs MOUNTPOINT\n");
        return 2;
    }
    fuse_lowlevel_ops operations{};
    operations.lookup = lookup;
    operations.getattr = getattr;
    operations.open = open;
    operations.read = read;
    char* arguments[] = {argv[0]};
    fuse_args args = FUSE_ARGS_INIT(1, arguments);
    fuse_session* session = fuse_session_new(&args, &operations, sizeof(operations), nullptr);
    if (session == nullptr || fuse_session_mount(session, argv[1]) != 0) {
        std::fprintf(stderr, "hanging_fs: cannot mount on %s\n", argv[1]);
        return 1;
    }
    std::printf("mounted\n");
    std::fflush(stdout);
    const int result = fuse_session_loop(session);
    fuse_session_unmount(session);
    fuse_session_destroy(session);
    return result == 0 ? 0 : 1;
}

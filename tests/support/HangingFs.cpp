// A file system whose reads never answer, like a hard NFS mount whose server died: every name is
// a 1 MiB file that opens, and no read ever returns until this program is killed.
// Usage: hanging_fs MOUNTPOINT (as root; prints "mounted" once it serves)
#define FUSE_USE_VERSION 34
#include <fuse3/fuse_lowlevel.h>
#include <sys/stat.h>

#include <cstdio>

int main(int argc, char** argv) {
    static const auto attributes = [](fuse_ino_t inode) {
        struct stat status {};
        status.st_nlink = 1;
        status.st_mode = inode == FUSE_ROOT_ID ? (S_IFDIR | 0755) : (S_IFREG | 0644);
        status.st_size = inode == FUSE_ROOT_ID ? 0 : (1 << 20);
        return status;
    };
    fuse_lowlevel_ops operations{};
    operations.lookup = [](fuse_req_t request, fuse_ino_t, const char*) {
        fuse_entry_param entry{};
        entry.ino = FUSE_ROOT_ID + 1;
        entry.attr = attributes(entry.ino);
        fuse_reply_entry(request, &entry);
    };
    operations.getattr = [](fuse_req_t request, fuse_ino_t inode, fuse_file_info*) {
        const struct stat status = attributes(inode);
        fuse_reply_attr(request, &status, 0);
    };
    operations.open = [](fuse_req_t request, fuse_ino_t, fuse_file_info* info) {
        info->direct_io = 1;  // every read reaches read(), none is served from a cache
        fuse_reply_open(request, info);
    };
    operations.read = [](fuse_req_t, fuse_ino_t, size_t, off_t, fuse_file_info*) {};
    fuse_args args = FUSE_ARGS_INIT(1, argv);
    fuse_session* session = fuse_session_new(&args, &operations, sizeof(operations), nullptr);
    if (argc != 2 || session == nullptr || fuse_session_mount(session, argv[1]) != 0) {
        return 1;
    }
    std::printf("mounted\n");
    std::fflush(stdout);
    return fuse_session_loop(session) == 0 ? 0 : 1;
}

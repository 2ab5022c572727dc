// The live-listener probe of the tools that create socket files.
#include "tools/common/socket_name.h"

#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace socket_name {

namespace {

// SO_ACCEPTCON in the Flags column of /proc/net/unix: a listening socket.
constexpr unsigned long kAcceptCon = 0x10000;

bool connectProbe(const std::string &path) {
    sockaddr_un addr;
    memset(&addr, 0, sizeof(addr));
    addr.sun_family = AF_UNIX;
    if (path.size() >= sizeof(addr.sun_path)) return false;
    memcpy(addr.sun_path, path.c_str(), path.size() + 1);
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return false;
    bool live = connect(fd, reinterpret_cast<sockaddr *>(&addr), sizeof(addr)) == 0;
    close(fd);
    return live;
}

// The same directory entry, however each path spells its directory (a trailing slash, "//").
bool samePlace(const std::string &a, const std::string &b) {
    const size_t sa = a.rfind('/'), sb = b.rfind('/');
    const std::string nameA = sa == std::string::npos ? a : a.substr(sa + 1);
    const std::string nameB = sb == std::string::npos ? b : b.substr(sb + 1);
    if (nameA != nameB) return false;
    struct stat da, db;
    return stat(sa == std::string::npos ? "." : (a.substr(0, sa) + "/.").c_str(), &da) == 0 &&
           stat(sb == std::string::npos ? "." : (b.substr(0, sb) + "/.").c_str(), &db) == 0 &&
           da.st_dev == db.st_dev && da.st_ino == db.st_ino;
}

}  // namespace

bool heldByLiveListener(const std::string &path) {
    FILE *table = fopen("/proc/net/unix", "re");
    if (table == nullptr) return connectProbe(path);
    // Num RefCount Protocol Flags Type St Inode Path
    char line[512];
    bool live = false;
    while (!live && fgets(line, sizeof(line), table) != nullptr) {
        unsigned long flags = 0;
        char bound[256] = "";
        if (sscanf(line, "%*s %*s %*s %lx %*s %*s %*s %255s", &flags, bound) == 2) {
            live = (flags & kAcceptCon) != 0 && samePlace(path, bound);
        }
    }
    fclose(table);
    return live;
}

}  // namespace socket_name

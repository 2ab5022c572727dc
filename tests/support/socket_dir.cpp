#include "support/socket_dir.h"

#include <dirent.h>
#include <stdlib.h>
#include <unistd.h>

#include <stdexcept>

ScopedSocketDir::ScopedSocketDir() {
    const char *tmp = getenv("TMPDIR");
    // Short on purpose: a socket path must fit sun_path (108 bytes).
    std::string pattern =
        std::string(tmp != nullptr && tmp[0] != '\0' ? tmp : "/tmp") + "/zok-sock-XXXXXX";
    if (mkdtemp(&pattern[0]) == nullptr) throw std::runtime_error("mkdtemp failed");
    mPath = pattern;
    setenv("ANDROID_SOCKET_DIR", mPath.c_str(), 1);
}

ScopedSocketDir::~ScopedSocketDir() {
    if (DIR *dir = opendir(mPath.c_str())) {
        while (dirent *entry = readdir(dir)) {
            std::string name = entry->d_name;
            if (name != "." && name != "..") unlink((mPath + "/" + name).c_str());
        }
        closedir(dir);
    }
    rmdir(mPath.c_str());
    unsetenv("ANDROID_SOCKET_DIR");
}

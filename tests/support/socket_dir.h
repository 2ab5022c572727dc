// A private reserved socket namespace for one test: a fresh temporary directory named in
// ANDROID_SOCKET_DIR for the object's lifetime, removed with whatever sockets are left in it.
//
//     ScopedSocketDir dir;
//     rild_sim::RildSim sim("rild-zok");   // listens in dir.path()
//
// Pitfall: the environment is process-wide; one object at a time, and the variable is unset
// afterwards (not restored).
#ifndef ZOK_TESTS_SOCKET_DIR_H
#define ZOK_TESTS_SOCKET_DIR_H

#include <string>

class ScopedSocketDir {
public:
    ScopedSocketDir();
    ~ScopedSocketDir();
    ScopedSocketDir(const ScopedSocketDir &) = delete;
    ScopedSocketDir &operator=(const ScopedSocketDir &) = delete;

    const std::string &path() const { return mPath; }

private:
    std::string mPath;
};

#endif  // ZOK_TESTS_SOCKET_DIR_H

// Child program of weak_import_test: loads a given libbinder.so first, then the entity, and runs
// the entity's init with every log line echoed to stdout. It links no binder library of its own,
// so the one loaded first is the one whose soname the entity's dependency resolves to.
//
//     weak_import_probe <libbinder.so> <libzok_rilproxy.so>
//
// Output, one record a line: "binder initWithDriver <address>", "log <text>" (newlines in the
// text written as \n), "init returned <entity id>". Exit 0 after init returned, 2 on load errors.
#include <dlfcn.h>
#include <host/log_capture.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "vopa.h"

namespace {

// One write per record, so a line from another entity thread cannot split it.
void writeRecord(const char *kind, const char *text) {
    char line[8192];
    size_t n = static_cast<size_t>(snprintf(line, sizeof(line), "%s ", kind));
    for (const char *p = text; *p != '\0' && n + 3 < sizeof(line); p++) {
        if (*p == '\n') {
            line[n++] = '\\';
            line[n++] = 'n';
        } else {
            line[n++] = *p;
        }
    }
    line[n++] = '\n';
    if (write(STDOUT_FILENO, line, n) != static_cast<ssize_t>(n)) _exit(3);
}

void echoLog(int, const char *, const char *text, void *) {
    writeRecord("log", text);
}

int fail(const char *what) {
    const char *why = dlerror();
    fprintf(stderr, "%s: %s\n", what, why ? why : "(no detail)");
    return 2;
}

}  // namespace

int main(int argc, char **argv) {
    if (argc != 3) {
        fprintf(stderr, "usage: %s <libbinder.so> <entity.so>\n", argv[0]);
        return 2;
    }
    void *binder = dlopen(argv[1], RTLD_NOW | RTLD_GLOBAL);
    if (binder == nullptr) return fail("binder");
    char address[64];
    snprintf(address, sizeof(address), "%p",
             dlsym(binder, "_ZN7android12ProcessState14initWithDriverEPKc"));
    writeRecord("binder initWithDriver", address);

    void *entity = dlopen(argv[2], RTLD_NOW | RTLD_LOCAL);
    if (entity == nullptr) return fail("entity");
    auto setSink =
        reinterpret_cast<void (*)(host_log_sink_t, void *)>(dlsym(entity, "host_log_set_sink"));
    auto setStderr = reinterpret_cast<void (*)(int)>(dlsym(entity, "host_log_set_stderr"));
    auto init = reinterpret_cast<entity_ptr_t (*)(entity_ptr_t, entity_init_arg_ptr_t)>(
        dlsym(entity, "rilproxy_entity_init"));
    if (setSink == nullptr || setStderr == nullptr || init == nullptr) return fail("symbols");
    setSink(echoLog, nullptr);
    setStderr(0);

    vopa_entity_t record = {};
    entity_ptr_t returned = init(&record, nullptr);
    char id[32];
    snprintf(id, sizeof(id), "%d", returned == &record ? record.id : -1);
    writeRecord("init returned", id);
    // The reader thread waits on the framework's init gate for ever; end without joining it.
    _exit(0);
}

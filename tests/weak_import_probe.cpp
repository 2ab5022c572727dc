// Child program of exports_test: loads a given libbinder.so first, then the entity, and runs
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
#include <unistd.h>

#include "vopa.h"

namespace {

// One write per record, so a line from another entity thread cannot split it.
void writeRecord(const char *kind, const char *text) {
    char line[8192];
    size_t n = static_cast<size_t>(snprintf(line, sizeof(line), "%s ", kind));
    for (const char *p = text; *p != '\0' && n + 3 < sizeof(line); p++) {
        if (*p == '\n') line[n++] = '\\';
        line[n++] = *p == '\n' ? 'n' : *p;
    }
    line[n++] = '\n';
    if (write(STDOUT_FILENO, line, n) != static_cast<ssize_t>(n)) _exit(3);
}

void echoLog(int, const char *, const char *text, void *) {
    writeRecord("log", text);
}

}  // namespace

int main(int argc, char **argv) {
    void *binder = argc == 3 ? dlopen(argv[1], RTLD_NOW | RTLD_GLOBAL) : nullptr;
    void *entity = binder ? dlopen(argv[2], RTLD_NOW | RTLD_LOCAL) : nullptr;
    auto setSink = reinterpret_cast<void (*)(host_log_sink_t, void *)>(
        entity ? dlsym(entity, "host_log_set_sink") : nullptr);
    auto init = reinterpret_cast<entity_ptr_t (*)(entity_ptr_t, entity_init_arg_ptr_t)>(
        entity ? dlsym(entity, "rilproxy_entity_init") : nullptr);
    if (!setSink || !init) {
        const char *why = dlerror();
        fprintf(stderr, "usage: %s <libbinder.so> <entity.so>: %s\n", argv[0], why ? why : "");
        return 2;
    }
    char text[64];
    snprintf(text, sizeof(text), "%p",
             dlsym(binder, "_ZN7android12ProcessState14initWithDriverEPKc"));
    writeRecord("binder initWithDriver", text);
    setSink(echoLog, nullptr);  // the lines still reach stderr too, which the test ignores

    vopa_entity_t record = {};
    entity_ptr_t returned = init(&record, nullptr);
    snprintf(text, sizeof(text), "%d", returned == &record ? record.id : -1);
    writeRecord("init returned", text);
    // The reader thread waits on the framework's init gate for ever; end without joining it.
    _exit(0);
}

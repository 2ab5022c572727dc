// The command/response reader thread (placeholder until the socket reader lands): waits for the
// framework's entities and then stays parked. Runs on the entity's reader thread.
#include "transport/reader.h"

#include <unistd.h>

void *rilproxy_cmd_resp_thread(void *) {
    vopa_wait_all_entity_init();
    for (;;) pause();
    return nullptr;
}

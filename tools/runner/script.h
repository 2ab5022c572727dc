// The host runner's script: one command per line, parsed and validated whole before anything
// runs, so a typo on line 40 is reported before line 1 has posted an event.
//
//     std::vector<runner::Command> commands;
//     std::string error;
//     if (!runner::parseScript(text, /*withSim=*/true, &commands, &error)) ...  // "line 3: ..."
#ifndef ZOK_TOOLS_RUNNER_SCRIPT_H
#define ZOK_TOOLS_RUNNER_SCRIPT_H

#include <stdint.h>

#include <string>
#include <vector>

namespace runner {

struct Command {
    enum Kind {
        Post,
        At,
        Connect,
        Disconnect,
        Prop,
        Wait,
        Sleep,
        SimUnsol,
        SimFail,
        SimClose,
        SimHold,
        SimRelease,
        SimWaitRequest,
        Quit
    };
    Kind kind;
    int line;
    // event id (post, wait); RIL request id (sim fail, sim wait-request); unsolicited id
    int32_t id = 0;
    std::vector<uint8_t> payload;
    uint32_t from = 1;     // requester of a posted event
    int timeoutMs = 0;     // wait, sim wait-request; sleep duration
    int32_t result = 0;    // sim fail
    uint64_t token = 0;    // at
    uint32_t channel = 0;  // at
    uint32_t simId = 0;    // at
    std::string text;      // at: the command text, escapes decoded; prop: the value
    std::string key;       // prop
};

// A numeric event id, or a name the framework knows (EVENT_SETUP_DATA_CALL_REQ).
bool parseEventId(const std::string &token, int32_t *out);

// One line of a script, numbered `lineNo` in the error text. False for a blank or comment line
// with `error` left empty.
bool parseCommand(const std::string &line, int lineNo, bool withSim, Command *out,
                  std::string *error);

// `withSim`: whether `sim ...` commands are allowed (the runner started its own daemon).
bool parseScript(const std::string &text, bool withSim, std::vector<Command> *out,
                 std::string *error);

}  // namespace runner

#endif  // ZOK_TOOLS_RUNNER_SCRIPT_H

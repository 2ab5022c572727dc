// Parser of the host runner's scripts. Pure; runs on the runner's main thread before the entity
// is loaded.
#include "tools/runner/script.h"

#include <errno.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include "tools/sim/profile.h"
#include "vopa.h"
#include "vopa_events.h"

namespace runner {

namespace {

// Far above any framework record (the largest is 47876 bytes); a bigger payload is a typo.
constexpr size_t kPayloadMax = 1024 * 1024;
constexpr size_t kSocketNameSize = 32;

const int32_t kKnownEvents[] = {
    EVENT_RILPROXY_ATCMD_REQ,
    EVENT_RILPROXY_CONNECT,
    EVENT_RILPROXY_DISCONNECT,
    EVENT_RESP_DATA_CALL_INFO,
    EVENT_RESP_PCSCF_PCO,
    EVENT_RESP_LAST_FAIL_CAUSE,
    EVENT_RILPROXY_ATCMD_RESP,
    EVENT_RILPROXY_STATE_IND,
    EVENT_DATA_NOTIFICATION_REQ,
    EVENT_SETUP_DATA_CALL_REQ,
    EVENT_SETUP_DATA_CALL_RESP,
    EVENT_DEACTIVATE_DATA_CALL_REQ,
    EVENT_DEACTIVATE_DATA_CALL_RESP,
    EVENT_SETUP_DEDICATE_DATA_CALL_REQ,
    EVENT_SETUP_DEDICATE_DATA_CALL_RESP,
    EVENT_MODIFY_DATA_CALL_REQ,
    EVENT_MODIFY_DATA_CALL_RESP,
    EVENT_DEACTIVATE_DEDICATE_DATA_CALL_REQ,
    EVENT_DEACTIVATE_DEDICATE_DATA_CALL_RESP,
    EVENT_ABORT_SETUP_DATA_CALL_REQ,
    EVENT_ABORT_SETUP_DATA_CALL_RESP,
    EVENT_PCSCF_DISCOVERY_PCO_REQ,
    EVENT_PCSCF_DISCOVERY_PCO_RESP,
    EVENT_LAST_DATA_CALL_FAIL_CAUSE_REQ,
    EVENT_LAST_DATA_CALL_FAIL_CAUSE_RESP,
    EVENT_DATA_CALL_LIST_CHANGED_IND,
    EVENT_DEDICATE_BEARER_ACTIVATED_IND,
    EVENT_DEDICATE_BEARER_MODIFIED_IND,
    EVENT_DEDICATE_BEARER_DEACTIVATED_IND,
    EVENT_SET_INITIAL_ATTACH_APN_REQ,
    EVENT_SET_INITIAL_ATTACH_APN_RESP,
    EVENT_RADIO_POWER_REQ,
    EVENT_RADIO_POWER_RESP,
    EVENT_DATA_CALL_RESPONSE_IND,
    EVENT_DATA_CALL_RESPONSE_FAIL_IND,
    EVENT_HANDOVER_RESP,
    EVENT_NWMNGR_NOTIFY_PS_REG_STATE,
    EVENT_RB_DM_HO_REQ,
    EVENT_DEACTIVATE_DATA_CALL_2_REQ,
    EVENT_RB_DM_PDN_INFO_IND,
};

struct Token {
    std::string text;
    size_t end;  // offset just past the token in its line
};

// Blank-separated tokens; a token that starts with '#' ends the line.
std::vector<Token> tokenize(const std::string &line) {
    std::vector<Token> out;
    size_t i = 0;
    while (i < line.size()) {
        while (i < line.size() && (line[i] == ' ' || line[i] == '\t' || line[i] == '\r')) i++;
        if (i >= line.size() || line[i] == '#') break;
        size_t start = i;
        while (i < line.size() && line[i] != ' ' && line[i] != '\t' && line[i] != '\r') i++;
        out.push_back(Token{line.substr(start, i - start), i});
    }
    return out;
}

bool parseInt64(const std::string &text, int64_t min, int64_t max, int64_t *out) {
    if (text.empty()) return false;
    errno = 0;
    char *end = nullptr;
    long long v = strtoll(text.c_str(), &end, 0);
    if (errno != 0 || *end != '\0' || v < min || v > max) return false;
    *out = v;
    return true;
}

bool parseUint64(const std::string &text, uint64_t *out) {
    if (text.empty() || text[0] == '-') return false;
    errno = 0;
    char *end = nullptr;
    unsigned long long v = strtoull(text.c_str(), &end, 0);
    if (errno != 0 || *end != '\0') return false;
    *out = v;
    return true;
}

int hexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

bool parseHex(const std::string &text, std::vector<uint8_t> *out) {
    if (text.size() % 2 != 0) return false;
    out->clear();
    for (size_t i = 0; i < text.size(); i += 2) {
        int hi = hexDigit(text[i]), lo = hexDigit(text[i + 1]);
        if (hi < 0 || lo < 0) return false;
        out->push_back(static_cast<uint8_t>(hi << 4 | lo));
    }
    return true;
}

// \r \n \t \s (blank) \\ ; anything else after a backslash is an error.
bool decodeEscapes(const std::string &text, std::string *out) {
    static const struct {
        char written, meant;
    } kEscapes[] = {{'r', '\r'}, {'n', '\n'}, {'t', '\t'}, {'s', ' '}, {'\\', '\\'}};
    out->clear();
    for (size_t i = 0; i < text.size(); i++) {
        if (text[i] != '\\') {
            out->push_back(text[i]);
            continue;
        }
        if (++i >= text.size()) return false;
        bool known = false;
        for (const auto &e : kEscapes) {
            if (text[i] != e.written) continue;
            out->push_back(e.meant);
            known = true;
        }
        if (!known) return false;
    }
    return true;
}

void putAt(std::vector<uint8_t> *payload, size_t offset, const uint8_t *data, size_t len) {
    if (payload->size() < offset + len) payload->resize(offset + len, 0);
    memcpy(payload->data() + offset, data, len);
}

// The tokens after `post ID`: [HEX] [size=N] [hex=OFF:HEX] [i32=OFF:N] [str=OFF:TEXT] [from=N].
bool parsePost(const std::vector<Token> &tokens, Command *c, std::string *why) {
    int64_t size = -1;
    for (size_t i = 2; i < tokens.size(); i++) {
        const std::string &t = tokens[i].text;
        size_t eq = t.find('=');
        if (eq == std::string::npos) {
            if (i != 2) {
                *why = "the payload hex must come right after the event id: '" + t + "'";
                return false;
            }
            if (!parseHex(t, &c->payload)) {
                *why = "bad hex '" + t + "'";
                return false;
            }
            continue;
        }
        std::string key = t.substr(0, eq), value = t.substr(eq + 1);
        if (key == "from") {
            int64_t v;
            if (!parseInt64(value, 0, UINT32_MAX, &v)) {
                *why = "bad requester '" + value + "'";
                return false;
            }
            c->from = static_cast<uint32_t>(v);
            continue;
        }
        if (key == "size") {
            if (!parseInt64(value, 0, kPayloadMax, &size)) {
                *why = "bad size '" + value + "'";
                return false;
            }
            continue;
        }
        size_t colon = value.find(':');
        int64_t offset;
        if ((key != "hex" && key != "i32" && key != "str") || colon == std::string::npos ||
            !parseInt64(value.substr(0, colon), 0, kPayloadMax, &offset)) {
            *why = "bad payload option '" + t + "'";
            return false;
        }
        std::string rest = value.substr(colon + 1);
        std::vector<uint8_t> piece;
        if (key == "hex") {
            if (!parseHex(rest, &piece)) {
                *why = "bad hex '" + rest + "'";
                return false;
            }
        } else if (key == "i32") {
            int64_t v;
            if (!parseInt64(rest, INT32_MIN, UINT32_MAX, &v)) {
                *why = "bad int32 '" + rest + "'";
                return false;
            }
            // Little-endian whatever the host: these are the framework's in-process records,
            // and both targets (x86_64, AArch64) are little-endian.
            uint32_t u = static_cast<uint32_t>(v);
            for (int b = 0; b < 4; b++) piece.push_back(static_cast<uint8_t>(u >> (8 * b)));
        } else {
            std::string decoded;
            if (!decodeEscapes(rest, &decoded)) {
                *why = "bad escape in '" + rest + "'";
                return false;
            }
            piece.assign(decoded.begin(), decoded.end());
        }
        if (static_cast<size_t>(offset) + piece.size() > kPayloadMax) {
            *why = "payload too large";
            return false;
        }
        putAt(&c->payload, static_cast<size_t>(offset), piece.data(), piece.size());
    }
    if (size >= 0) {
        if (c->payload.size() > static_cast<size_t>(size)) {
            *why = "payload of " + std::to_string(c->payload.size()) +
                   " bytes exceeds size=" + std::to_string(size);
            return false;
        }
        c->payload.resize(static_cast<size_t>(size), 0);
    }
    return true;
}

// The words after the command's own, as one token list, with the line they came from.
struct Args {
    const std::string &line;
    const std::vector<Token> &tokens;
};

// A number within [min, max]; otherwise `why` names the argument: "bad <what> '<text>'".
bool number(const Token &token, int64_t min, int64_t max, const char *what, int64_t *out,
            std::string *why) {
    if (parseInt64(token.text, min, max, out)) return true;
    *why = std::string("bad ") + what + " '" + token.text + "'";
    return false;
}

// The rest of the line after `token`, as written (blanks and '#' included), trailing blanks cut.
std::string restOfLine(const Args &a, size_t token) {
    std::string rest = a.line.substr(a.line.find_first_not_of(" \t", a.tokens[token].end));
    rest.erase(rest.find_last_not_of(" \t\r") + 1);
    return rest;
}

bool eventIdAt(const Args &a, size_t token, int32_t *out, std::string *why) {
    if (parseEventId(a.tokens[token].text, out)) return true;
    *why = "bad event id '" + a.tokens[token].text + "'";
    return false;
}

bool buildPost(const Args &a, Command *c, std::string *why) {
    return eventIdAt(a, 1, &c->id, why) && parsePost(a.tokens, c, why);
}

bool buildAt(const Args &a, Command *c, std::string *why) {
    int64_t channel, simId;
    if (!number(a.tokens[1], 0, UINT32_MAX, "channel", &channel, why) ||
        !number(a.tokens[2], 0, UINT32_MAX, "SIM id", &simId, why)) {
        return false;
    }
    c->channel = static_cast<uint32_t>(channel);
    c->simId = static_cast<uint32_t>(simId);
    if (!parseUint64(a.tokens[3].text, &c->token)) {
        *why = "bad token '" + a.tokens[3].text + "'";
        return false;
    }
    if (!decodeEscapes(restOfLine(a, 3), &c->text)) {
        *why = "bad escape in the AT text";
        return false;
    }
    return true;
}

bool buildConnect(const Args &a, Command *c, std::string *why) {
    c->payload.assign(2 * kSocketNameSize, 0);
    for (size_t i = 1; i < a.tokens.size(); i++) {
        const std::string &name = a.tokens[i].text;
        if (name.size() >= kSocketNameSize) {
            *why = "socket name '" + name + "' longer than 31 characters";
            return false;
        }
        memcpy(c->payload.data() + (i - 1) * kSocketNameSize, name.data(), name.size());
    }
    return true;
}

bool buildProp(const Args &a, Command *c, std::string *) {
    c->key = a.tokens[1].text;
    c->text = restOfLine(a, 1);
    return true;
}

bool buildWait(const Args &a, Command *c, std::string *why) {
    if (!eventIdAt(a, 1, &c->id, why)) return false;
    int64_t ms = 5000;
    if (a.tokens.size() == 3 && !number(a.tokens[2], 1, INT32_MAX, "time-out", &ms, why)) {
        return false;
    }
    c->timeoutMs = static_cast<int>(ms);
    return true;
}

bool buildSleep(const Args &a, Command *c, std::string *why) {
    int64_t ms;
    if (!number(a.tokens[1], 0, INT32_MAX, "duration", &ms, why)) return false;
    c->timeoutMs = static_cast<int>(ms);
    return true;
}

// A number within [min, max] or a name of the daemon's table (the names its lines print).
bool idOrName(const Token &token, rild_sim::NameKind kind, int64_t min, const char *what,
              int32_t *out, std::string *why) {
    if (rild_sim::idByName(kind, token.text, out)) return true;
    int64_t v;
    if (!number(token, min, INT32_MAX, what, &v, why)) return false;
    *out = static_cast<int32_t>(v);
    return true;
}

bool buildSimFail(const Args &a, Command *c, std::string *why) {
    return idOrName(a.tokens[2], rild_sim::NameKind::Request, 1, "RIL request", &c->id, why) &&
           idOrName(a.tokens[3], rild_sim::NameKind::Result, INT32_MIN, "result", &c->result, why);
}

bool buildSimWaitRequest(const Args &a, Command *c, std::string *why) {
    if (!idOrName(a.tokens[2], rild_sim::NameKind::Request, 1, "RIL request", &c->id, why)) {
        return false;
    }
    int64_t ms = 5000;
    if (a.tokens.size() == 4 && !number(a.tokens[3], 1, INT32_MAX, "time-out", &ms, why)) {
        return false;
    }
    c->timeoutMs = static_cast<int>(ms);
    return true;
}

// `sim unsol NAME` (a built-in payload by name) or `sim unsol ID|RIL_UNSOL_NAME [HEX]`.
bool buildSimUnsol(const Args &a, Command *c, std::string *why) {
    const std::string &what = a.tokens[2].text;
    int32_t named;
    const bool ril = rild_sim::idByName(rild_sim::NameKind::Unsolicited, what, &named);
    if (a.tokens.size() == 3 && !ril && !what.empty() && (what[0] < '0' || what[0] > '9')) {
        if (rild_sim::builtinUnsolicited(what, &c->id, &c->payload)) return true;
        *why = "unknown built-in unsolicited '" + what + "'";
        return false;
    }
    if (!idOrName(a.tokens[2], rild_sim::NameKind::Unsolicited, 1, "unsolicited id", &c->id, why)) {
        return false;
    }
    if (a.tokens.size() == 4 && !parseHex(a.tokens[3].text, &c->payload)) {
        *why = "bad hex '" + a.tokens[3].text + "'";
        return false;
    }
    return true;
}

// One row per command. Token counts include the command's own words; kAnyMore leaves the count
// open. A row with `tooFew` names the missing arguments, the others say "wrong number".
constexpr size_t kAnyMore = SIZE_MAX;

struct CommandRow {
    const char *word;
    const char *subword;  // the second word of a `sim` command; null for the others
    Command::Kind kind;
    size_t minTokens, maxTokens;
    const char *tooFew;
    bool (*build)(const Args &, Command *, std::string *);  // null: no arguments to read
};

const CommandRow kCommands[] = {
    {"post", nullptr, Command::Post, 2, kAnyMore, "post needs an event id", buildPost},
    {"at", nullptr, Command::At, 5, kAnyMore, "at needs CHANNEL SIM TOKEN TEXT", buildAt},
    {"connect", nullptr, Command::Connect, 1, 3, nullptr, buildConnect},
    {"disconnect", nullptr, Command::Disconnect, 1, 1, nullptr, nullptr},
    {"prop", nullptr, Command::Prop, 3, kAnyMore, "prop needs KEY VALUE", buildProp},
    {"wait", nullptr, Command::Wait, 2, 3, nullptr, buildWait},
    {"sleep", nullptr, Command::Sleep, 2, 2, nullptr, buildSleep},
    {"quit", nullptr, Command::Quit, 1, 1, nullptr, nullptr},
    {"sim", "close", Command::SimClose, 2, 2, nullptr, nullptr},
    {"sim", "hold", Command::SimHold, 2, 2, nullptr, nullptr},
    {"sim", "release", Command::SimRelease, 2, 2, nullptr, nullptr},
    {"sim", "fail", Command::SimFail, 4, 4, nullptr, buildSimFail},
    {"sim", "unsol", Command::SimUnsol, 3, 4, nullptr, buildSimUnsol},
    {"sim", "wait-request", Command::SimWaitRequest, 3, 4, nullptr, buildSimWaitRequest},
};

bool parseLine(const std::string &line, const std::vector<Token> &tokens, bool withSim, Command *c,
               std::string *why) {
    const std::string &verb = tokens[0].text;
    const size_t n = tokens.size();
    const CommandRow *row = nullptr;
    bool knownVerb = false;
    for (const CommandRow &r : kCommands) {
        if (verb != r.word) continue;
        knownVerb = true;
        if (r.subword == nullptr || (n >= 2 && tokens[1].text == r.subword)) {
            row = &r;
            break;
        }
    }
    if (!knownVerb) {
        *why = "unknown command '" + verb + "'";
        return false;
    }
    // Checked before the subcommand, so any `sim` line without a daemon says why.
    if (verb == "sim" && !withSim) {
        *why = "'sim' commands need --sim";
        return false;
    }
    if (row == nullptr) {
        *why = "unknown " + verb + " command";
        return false;
    }
    if (n < row->minTokens && row->tooFew != nullptr) {
        *why = row->tooFew;
        return false;
    }
    if (n < row->minTokens || n > row->maxTokens) {
        *why = "wrong number of arguments for '" + verb + "'";
        return false;
    }
    c->kind = row->kind;
    return row->build == nullptr || row->build(Args{line, tokens}, c, why);
}

}  // namespace

bool parseEventId(const std::string &token, int32_t *out) {
    int64_t v;
    if (parseInt64(token, 1, INT32_MAX, &v)) {
        *out = static_cast<int32_t>(v);
        return true;
    }
    for (int32_t id : kKnownEvents) {
        if (token == event_get_name(id)) {
            *out = id;
            return true;
        }
    }
    return false;
}

bool parseCommand(const std::string &line, int lineNo, bool withSim, Command *out,
                  std::string *error) {
    error->clear();
    std::vector<Token> tokens = tokenize(line);
    if (tokens.empty()) return false;
    Command c;
    c.kind = Command::Quit;
    c.line = lineNo;
    std::string why;
    if (!parseLine(line, tokens, withSim, &c, &why)) {
        *error = "line " + std::to_string(lineNo) + ": " + why;
        return false;
    }
    *out = c;
    return true;
}

bool parseScript(const std::string &text, bool withSim, std::vector<Command> *out,
                 std::string *error) {
    out->clear();
    size_t pos = 0;
    int lineNo = 0;
    while (pos < text.size()) {
        size_t nl = text.find('\n', pos);
        std::string line = text.substr(pos, nl == std::string::npos ? std::string::npos : nl - pos);
        pos = nl == std::string::npos ? text.size() : nl + 1;
        lineNo++;
        Command c;
        if (parseCommand(line, lineNo, withSim, &c, error)) {
            out->push_back(c);
        } else if (!error->empty()) {
            return false;
        }
    }
    return true;
}

}  // namespace runner

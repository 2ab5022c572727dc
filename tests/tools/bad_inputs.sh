#!/usr/bin/env bash
# rild-sim and rild-tap on bad input: each case must end within its time limit with a non-zero
# status that is not a signal's (no abort), and exactly one line on stderr that names the input.
# Then what they do with a live daemon's socket name (refuse, and the daemon still serves), a
# stale socket file (replace it) and an existing capture file (replace it, or keep it when the
# tap refuses to start).
#
#   bad_inputs.sh TOOLS_DIR SOURCE_DIR WORK_DIR
set -uo pipefail
tools=$1 src=$2 work=$3
rm -rf "$work" && mkdir -p "$work/socks" && cd "$work" || exit 1
fail() { echo "FAIL: $*" >&2; failures=$((failures + 1)); }
failures=0 cases=0
sim=$tools/rild-sim tap=$tools/rild-tap

# Inputs: a directory, a text file, a socket file and a FIFO (whose open would block), a pcapng
# of link type 1.
mkdir adir
mkfifo fifo
echo 'not a capture' >text.pcapng
# A daemon killed outright leaves its socket file behind: a stale one.
"$sim" --socket-dir socks --name rild-stale >/dev/null 2>&1 &
for _ in $(seq 100); do [ -S socks/rild-stale ] && break; sleep 0.1; done
kill -KILL $! && wait $! 2>/dev/null
[ -S socks/rild-stale ] || { echo "FAIL: no stale socket file" >&2; exit 1; }
hexfile() { printf "$(printf '%s' "$2" | sed 's/../\\x&/g')" >"$1"; }
shb=0a0d0d0a1c0000004d3c2b1a01000000ffffffffffffffff1c000000
hexfile ether.pcapng ${shb}0100000014000000010000000000000014000000
# Link type 147, then one outbound packet: a request frame whose header size says 8, not 4.
idb=0100000014000000930000000000000014000000
epb=0600000040000000000000000000000000000000140000001400000000000010080000000000000029000000
hexfile wide.pcapng ${shb}${idb}${epb}0001000002000400020000000000000040000000

# A live daemon on rild-live for the name cases; it serves an entity after them.
"$sim" --socket-dir socks --name rild-live --accept-timeout 60000 >live.out 2>&1 &
live=$!
for _ in $(seq 100); do [ -S socks/rild-live ] && break; sleep 0.1; done

# expect WHAT_THE_LINE_NAMES COMMAND...: one case.
expect() {
  local names=$1 status lines
  shift
  cases=$((cases + 1))
  timeout 10 "$@" >/dev/null 2>err.txt
  status=$?
  lines=$(wc -l <err.txt)
  if [ "$status" = 0 ] || [ "$status" -ge 124 ]; then
    fail "$* -> status $status (want a refusal, not success, a hang or a signal)"
  elif [ "$lines" != 1 ] || ! grep -qF -- "$names" err.txt; then
    fail "$* -> $lines stderr lines without '$names': $(cat err.txt)"
  fi
}

expect adir "$sim" --socket-dir socks --replay adir
expect missing.pcapng "$sim" --socket-dir socks --replay missing.pcapng
expect socks/rild-stale "$sim" --socket-dir socks --replay socks/rild-stale
expect fifo "$sim" --socket-dir socks --replay fifo
expect text.pcapng "$sim" --socket-dir socks --replay text.pcapng
expect "(link type) 1," "$sim" --socket-dir socks --replay ether.pcapng
expect "wide.pcapng: packet 1: not a request frame" "$sim" --socket-dir socks --replay wide.pcapng
for t in -5 0 abc 10x; do expect "'$t'" "$sim" --socket-dir socks --accept-timeout "$t"; done
expect adir "$sim" --socket-dir socks --capture adir
expect nodir "$sim" --socket-dir nodir
expect socks/rild-live "$sim" --socket-dir socks --name rild-live
expect socks/rild-live "$sim" --socket-dir socks --name rild-live --replay text.pcapng --accept-timeout 9
expect nodir "$tap" --socket-dir nodir --listen a --upstream b --capture t.pcapng
expect adir "$tap" --socket-dir socks --listen a --upstream b --capture adir
expect socks/rild-live "$tap" --socket-dir socks --listen rild-live --upstream b --capture t.pcapng

# The refusals took nothing from the live daemon: an entity still reaches it by its name.
printf 'wait EVENT_RILPROXY_STATE_IND 10000\nconnect\nwait EVENT_RILPROXY_CONNECT\n' >connect.script
timeout 30 "$tools/rilproxy-host" --socket-dir socks --prop vendor.ril.zok.socket=rild-live \
  connect.script >/dev/null 2>&1 || fail "the live daemon no longer serves"
wait "$live" || fail "the live daemon ended with status $?"
grep -q 'client connected' live.out || fail "live daemon: $(cat live.out)"

# A stale socket file is not a live daemon: it is replaced (no client comes: status 1).
timeout 10 "$sim" --socket-dir socks --name rild-stale --accept-timeout 100 >stale.out 2>&1
[ $? = 1 ] && grep -q 'no client' stale.out || fail "stale socket: $(cat stale.out)"

# An existing capture file is replaced by the new session's (here a file head and no packet)...
echo 'old contents' >old.pcapng
timeout 10 "$sim" --socket-dir socks --accept-timeout 100 --capture old.pcapng >/dev/null 2>&1
[ "$(od -An -tx1 -N4 old.pcapng | tr -d ' ')" = 0a0d0d0a ] && [ "$(stat -c %s old.pcapng)" = 48 ] ||
  fail "an existing capture file was not replaced: $(od -c old.pcapng | head -2)"
# ...but a tap that refuses its socket name leaves it as it was.
echo 'old contents' >kept.pcapng
"$sim" --socket-dir socks --name rild-held --accept-timeout 2000 >/dev/null 2>&1 &
for _ in $(seq 100); do [ -S socks/rild-held ] && break; sleep 0.1; done
timeout 10 "$tap" --socket-dir socks --listen rild-held --upstream x --capture kept.pcapng 2>/dev/null &&
  fail "the tap took a live name"
[ "$(cat kept.pcapng)" = 'old contents' ] || fail "a refused tap replaced its capture file"
wait

# A tap whose entity arrives before its daemon listens waits for the daemon.
"$tap" --socket-dir socks --listen rild-early --upstream rild-late --capture late.pcapng \
  2>tap.err &
tapped=$!
for _ in $(seq 100); do [ -S socks/rild-early ] && break; sleep 0.1; done
timeout 30 "$tools/rilproxy-host" --socket-dir socks --prop vendor.ril.zok.socket=rild-early \
  connect.script >/dev/null 2>&1 &
sleep 1
timeout 30 "$sim" --socket-dir socks --name rild-late --accept-timeout 10000 >late.out 2>&1
wait "$tapped" || fail "a tap started before its daemon: $(cat tap.err)"
wait

echo "bad inputs: $cases cases, $failures failures"
[ "$failures" = 0 ]

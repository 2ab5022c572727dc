#!/usr/bin/env bash
# The Wireshark dissector on captures the suite makes: the demo and more_frames.script, recorded
# by rilproxy-host --capture. Every frame is named, nothing is malformed or warned about, and the
# decoded fields equal the reviewed dumps beside this script; broken frames become expert info,
# never a Lua error. Exit 77 (skipped) without tshark.
#
#   dissector_test.sh TOOLS_DIR SOURCE_DIR WORK_DIR
set -euo pipefail
tools=$1 src=$2 work=$3
command -v tshark >/dev/null || { echo "tshark not installed: skipped"; exit 77; }
lua=$src/tools/wireshark/zok_ril.lua
here=$src/tests/wireshark
rm -rf "$work" && mkdir -p "$work"
fail() { echo "FAIL: $*" >&2; exit 1; }

# -2: the second pass links requests to their responses as well as responses to requests.
ts() { tshark -2 -X lua_script:"$lua" -r "$@" 2>"$work/tshark.err" || fail "tshark: $(cat "$work/tshark.err")"; }

fields=(frame.number zokril.response_in zokril.request_in zokril.string zokril.int32
        zokril.dc.version zokril.dc.cid zokril.dc.gateways zokril.dc.mtu zokril.dc.concatenate_num
        zokril.dc.default_ddc_id zokril.dc.eran_type zokril.bearer.cid zokril.bearer.pcscf
        zokril.qos zokril.pf.address zokril.tft.linked_pf zokril.tft.token zokril.tft.flow_id
        zokril.dc.pcscf zokril.at.text zokril.fail_cause zokril.tlv_serial zokril.close)
named='^[0-9]+	((RIL|ZOKRIL)_[A-Z0-9_]+ (req serial 0x[0-9a-f]+|resp serial 0x[0-9a-f]+ ZOKRIL_E_[A-Z_]+|unsol)|close by (daemon|entity))$'

for name in demo more; do
  script=$src/examples/demo.script
  [ "$name" = demo ] || script=$here/more_frames.script
  "$tools/rilproxy-host" --sim --quiet --capture "$work/$name.pcapng" "$script" >"$work/$name.out" ||
    fail "$name run"
  cap=$work/$name.pcapng
  ts "$cap" -T fields -e frame.number -e _ws.col.Info >"$work/$name.info"
  bad=$(grep -Evc "$named" "$work/$name.info" || true)
  [ "$bad" = 0 ] || fail "$name: frames not decoded by name: $(grep -Ev "$named" "$work/$name.info")"
  # Notes (a refused TLV request, the close) are fine; warnings and errors are not.
  ts "$cap" -Y '_ws.malformed || _ws.expert.severity >= 0x600000' -T fields -e frame.number \
    -e _ws.expert.message >"$work/$name.bad"
  [ ! -s "$work/$name.bad" ] || fail "$name: malformed or warned: $(cat "$work/$name.bad")"
  args=()
  for f in "${fields[@]}"; do args+=(-e "$f"); done
  ts "$cap" -T fields -E separator='|' -E occurrence=a -E aggregator=, "${args[@]}" \
    >"$work/$name.fields"
  diff <(grep -v '^#' "$here/$name.fields") "$work/$name.fields" || fail "$name: decoded fields differ"
done

# Loaded from the personal plugin folder instead of -X lua_script.
plugins=$work/home/.local/lib/wireshark/plugins
mkdir -p "$plugins" && cp "$lua" "$plugins/"
first=$(HOME=$work/home tshark -r "$work/demo.pcapng" -T fields -e _ws.col.Info -c 1 2>/dev/null)
[ "$first" = "ZOKRIL_REQUEST_SETUP_DATA_CALL_TLV req serial 0x40000200" ] ||
  fail "not loaded from the plugin folder: '$first'"

# Broken frames, written by hand into a capture: each must end in error-level expert info (the
# last, a packet without direction, in a warning), none in a dissector error.
le32() { printf '%08x' "$1" | sed 's/\(..\)\(..\)\(..\)\(..\)/\4\3\2\1/'; }
epb() {  # FLAGS FRAME_HEX [MICROSECONDS]: an Enhanced Packet Block with its epb_flags option, in
         # 2026 (a time stamp whose seconds make a double lose the microseconds)
  local n=$((${#2} / 2)) pad total
  pad=$(((4 - n % 4) % 4))
  total=$((44 + n + pad))
  printf '%s' "06000000$(le32 $total)0000000000600600$(le32 "${3:-0}")$(le32 $n)$(le32 $n)$2"
  for ((i = 0; i < pad; i++)); do printf 00; done
  printf '%s' "02000400$(le32 "$1")00000000$(le32 $total)"
}
broken=(  # direction flags (2 outbound, 1 inbound, 0 none), then the frame's words
  "2 00000020 04000000 00000000 17000000 00020000"  # length word says 32, 16 follow
  "2 00000010 08000000 00000000 29000000 00030000"  # a request with header size 8
  # 6002, version 11, one entry whose type String16 announces 6 units and holds 2
  "1 0000002c 00000000 01000000 72170000 0b000000 01000000 00000000 ffffffff 01000000 02000000 06000000 49005000"
  "1 00000008 00000000 02000000"                    # frame type 2
  "1 00000010 00000000 01000000 d60b0000 ffffff7f"  # 2^31-1 bearers in four bytes
  "1 0000000c 00010000 00000000 00000000"           # header size beyond the frame
  "1 000000"                                        # no room for a header
  "0 00000010 04000000 00000000 29000000 00040000"  # no direction: guessed from the header
)
head=0a0d0d0a1c0000004d3c2b1a01000000ffffffffffffffff1c000000
head+=0100000014000000930000000000000014000000
write_capture() {  # FILE, then "FLAGS [@MICROSECONDS] WORDS..." per packet
  local file=$1 hex=$head b words at
  shift
  for b in "$@"; do
    words=${b#* } at=0
    if [ "${words:0:1}" = @ ]; then at=${words%% *} at=${at#@} words=${words#* }; fi
    hex+=$(epb "${b%% *}" "${words// /}" "$at")
  done
  printf "$(printf '%s' "$hex" | sed 's/../\\x&/g')" >"$file"
}
write_capture "$work/broken.pcapng" "${broken[@]}"
ts "$work/broken.pcapng" -T fields -e frame.number -e _ws.expert.severity \
  -e zokril.dissector_error >"$work/broken.experts"
[ "$(wc -l <"$work/broken.experts")" = "${#broken[@]}" ] || fail "broken: $(cat "$work/broken.experts")"
grep -q 'Lua' "$work/tshark.err" && fail "broken: Lua error: $(cat "$work/tshark.err")"
while IFS=$'\t' read -r number severities error; do
  [ -z "$error" ] || fail "broken frame $number: dissector error $error"
  want=8388608
  [ "$number" != "${#broken[@]}" ] || want=6291456
  case ",$severities," in *",$want,"*) ;; *) fail "broken frame $number: severities $severities" ;; esac
done <"$work/broken.experts"

# Request tracking on a hand-made session: three answered requests of id 41 (1 ms, 16 us, 500 us),
# an unanswered radio power request, a response to a serial nobody sent.
req41() { echo "2 @$1 00000014 04000000 00000000 29000000 $2 00000000"; }  # no strings
resp() { echo "1 @$1 00000010 00000000 00000000 $2 00000000"; }
tracked=("$(req41 100 00010000)" "$(resp 1100 00010000)" "$(req41 1200 00020000)"
         "$(resp 1216 00020000)"
         "2 @1300 00000018 04000000 00000000 17000000 00030000 01000000 01000000"  # 23, on
         "$(req41 1400 00040000)" "$(resp 1900 00040000)" "$(resp 2000 00090000)")
write_capture "$work/tracked.pcapng" "${tracked[@]}"
ts "$work/tracked.pcapng" -T fields -E separator='|' -e frame.number -e _ws.col.Source \
  -e _ws.col.Destination -e zokril.time -e zokril.request_in -e _ws.expert.message \
  >"$work/tracked.out"
diff - "$work/tracked.out" <<'EOF' || fail "request tracking differs"
1|entity|rild|||
2|rild|entity|0.001000000|1|
3|entity|rild|||
4|rild|entity|0.000016000|3|
5|entity|rild|||Request without a response in the capture
6|entity|rild|||
7|rild|entity|0.000500000|6|
8|rild|entity|||Response without a request in the capture
EOF
tshark -X lua_script:"$lua" -q -z zokril,srt -r "$work/tracked.pcapng" >"$work/srt.out" 2>/dev/null ||
  fail "zokril,srt did not run"
srt_row() { grep "^$1 " "$work/srt.out" | tr -s ' ' || true; }
[ "$(srt_row RIL_REQUEST_DEACTIVATE_DATA_CALL)" = \
  "RIL_REQUEST_DEACTIVATE_DATA_CALL 3 3 0.000016000 0.001000000 0.000505333" ] &&
  [ "$(srt_row RIL_REQUEST_RADIO_POWER)" = "RIL_REQUEST_RADIO_POWER 1 0 - - -" ] &&
  grep -qx 'Responses without a request: 1' "$work/srt.out" || fail "srt: $(cat "$work/srt.out")"

# The Statistics menu entry, through stand-ins for the GUI that tshark lacks: it must register
# under the statistics group and fill its window with the same table.
cat >"$work/gui.lua" <<EOF
_G.gui_enabled = function() return true end
_G.register_menu = function(name, run, group) print("menu " .. name .. " " .. group); run() end
_G.TextWindow = { new = function() return { clear = function() end, set_atclose = function() end,
  append = function(_, text) print(text) end } end }
_G.retap_packets = function() end
dofile("$lua")
EOF
tshark -X lua_script:"$work/gui.lua" -q -r "$work/tracked.pcapng" >"$work/menu.out" 2>/dev/null
grep -qx "menu ZOK RIL/Response times $(tshark -X lua_script:/dev/stdin -q -r "$work/tracked.pcapng" \
  <<<'print(MENU_STAT_GENERIC)' 2>/dev/null)" "$work/menu.out" &&
  grep -q '^Responses without a request: 1$' "$work/menu.out" || fail "menu: $(cat "$work/menu.out")"

# Typed addresses beside the texts: the demo's data call, v4 and v6 (written as 16 dotted bytes).
ts "$work/demo.pcapng" -Y 'zokril.dc.cid == 1 && zokril.request_in' -T fields \
  -e zokril.ipv4 -e zokril.ipv6 | head -n 1 >"$work/addresses.out"
grep -q $'^10\\.0\\.0\\.2,.*\t2001:db8::2,' "$work/addresses.out" ||
  fail "addresses: $(cat "$work/addresses.out")"

# Another user link type (148) is decoded only with the preference.
cp "$work/demo.pcapng" "$work/user1.pcapng"
printf '\x94' | dd of="$work/user1.pcapng" bs=1 seek=36 conv=notrunc 2>/dev/null
other() {
  tshark -X lua_script:"$lua" "$@" -r "$work/user1.pcapng" -c 1 -T fields -e _ws.col.Info 2>/dev/null
}
first_demo="ZOKRIL_REQUEST_SETUP_DATA_CALL_TLV req serial 0x40000200"
[ "$(other)" != "$first_demo" ] && [ "$(other -o zokril.link_type:148)" = "$first_demo" ] ||
  fail "link type preference"
echo "dissector: demo and more_frames decoded as reviewed; ${#broken[@]} broken frames reported;" \
  "requests tracked, response times, typed addresses, another link type"

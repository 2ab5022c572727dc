#!/usr/bin/env bash
# Checks the AArch64 shared object the way a device's loader and a security review see it, with
# binutils' readelf and nm: relocations read-only and bound at load, a stack that is not
# executable, no text relocations, exactly the framework's names exported, every library it needs
# one the module's Android.bp names (or the runtime every module gets), every symbol it imports
# defined by one of them, and no code run at load beyond the C runtime's own start-up entry.
# Each failure is one line on stderr; the status is 1 when there is any.
#
#   scripts/lib/device_object.sh <object> <sysroot> <library dir> <shared_libs...>
#
# <library dir> holds the tree's stand-ins for the shared_libs (libbinder.so, ...); <sysroot>
# holds the target's libc, libm, libstdc++.
set -uo pipefail
export LC_ALL=C  # one collation for sort and comm

so=$1 sysroot=$2 libdir=$3
shift 3
readelf=aarch64-linux-gnu-readelf nm=aarch64-linux-gnu-nm
failed=0
fail() { echo "device object: $(basename "$so"): $*" >&2; failed=1; }

# The framework binds exactly these; everything else is hidden by the version script.
exports="_Z23rilproxy_reply_responseP9vopa_taskP10vopa_eventiPvi ril_handlers ril_handlers_tlv
ril_notifys rilproxy_entity_exit rilproxy_entity_init rilproxy_entity_version"

# What every platform module links besides its shared_libs: libc, libm, libdl and the C++ runtime.
# Here they are glibc's and libstdc++'s; ld-linux is the loader (glibc keeps the stack guard and
# the dl* functions there, bionic in libc and libdl) and libgcc_s is the unwinder clang's driver
# adds on a glibc target (a device links its unwinder statically).
runtime="libc.so.6 libm.so.6 libdl.so.2 libstdc++.so.6 ld-linux-aarch64.so.1 libgcc_s.so.1"

# Weak references the C runtime's start-up object (crtbegin) makes and nothing defines on purpose.
crt_weak="_ITM_deregisterTMCloneTable _ITM_registerTMCloneTable __gmon_start__"

# The only load-time initialiser allowed: crtbegin's frame_dummy (registers the transactional
# memory clone table when libitm is loaded, which it never is). An entity global with a dynamic
# constructor would add a _GLOBAL__sub_I_ entry here.
init_allowed="frame_dummy"

headers=$($readelf -hW "$so") || { fail "not an ELF file"; exit 1; }
dynamic=$($readelf -dW "$so")
segments=$($readelf -lW "$so")

grep -q 'Machine:[[:space:]]*AArch64' <<<"$headers" || fail "not an AArch64 object"
grep -q "Library soname: \[$(basename "$so")\]" <<<"$dynamic" || fail "no SONAME $(basename "$so")"

grep -q '^ *GNU_RELRO ' <<<"$segments" || fail "no GNU_RELRO segment (link with -z relro)"
grep -Eq '\(FLAGS\).*BIND_NOW|\(FLAGS_1\).*NOW' <<<"$dynamic" ||
  fail "no BIND_NOW: relocations stay writable after load (link with -z now)"

stack=$(awk '$1 == "GNU_STACK" {print $(NF - 1)}' <<<"$segments")
[ -n "$stack" ] || fail "no GNU_STACK segment: the loader would make the stack executable"
[[ $stack != *E* ]] || fail "executable stack (GNU_STACK $stack; link with -z noexecstack)"

grep -Eq '\(TEXTREL\)|\(FLAGS\).*TEXTREL' <<<"$dynamic" &&
  fail "text relocations (code not built position-independent)"

exported=$($nm -D --defined-only "$so" | awk '{print $3}' | sort)
expected=$(tr ' ' '\n' <<<"$exports" | grep . | sort)
[ "$exported" = "$expected" ] ||
  fail "exports differ: extra [$(comm -23 <(echo "$exported") <(echo "$expected") | xargs)]" \
       "missing [$(comm -13 <(echo "$exported") <(echo "$expected") | xargs)]"

# Needed libraries: each must be a named shared_lib or the runtime; their definitions are what the
# object's imports may resolve to.
allowed=" $runtime "
for lib in "$@"; do allowed+="$lib.so "; done
defined=$(mktemp)
trap 'rm -f "$defined"' EXIT
# shellcheck disable=SC2013  # sonames are single words
for needed in $(sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' <<<"$dynamic"); do
  if [[ $allowed != *" $needed "* ]]; then
    fail "needs $needed, which Android.bp does not name"
    continue
  fi
  file=$libdir/$needed
  [ -e "$file" ] || file=$sysroot/lib/$needed
  [ -e "$file" ] || { fail "needs $needed, found in neither $libdir nor $sysroot/lib"; continue; }
  $nm -D --defined-only "$file" | awk '{sub(/@.*/, "", $3); print $3}' >>"$defined"
done
sort -u -o "$defined" "$defined"
unresolved=$($nm -D --undefined-only "$so" | awk '{sub(/@.*/, "", $2); print $2}' | sort -u |
             comm -23 - "$defined" | grep -vxF -f <(tr ' ' '\n' <<<"$crt_weak" | grep .) |
             tr '\n' ' ')
[ -z "$unresolved" ] || fail "imports defined by no library Android.bp names: $unresolved"

# Initialisers: every .preinit_array and .init_array slot is a RELATIVE relocation whose addend is
# the function's address; name each by the symbol table.
symbols=$($nm "$so")
sections=$($readelf -SW "$so")
relocs=$($readelf -rW "$so")
for section in .preinit_array .init_array; do
  read -r addr size < <(awk -v s="$section" '{for (i = 1; i < NF; i++) if ($i == s)
                        {print $(i + 2), $(i + 4); exit}}' <<<"$sections")
  [ -n "${addr:-}" ] || continue
  for ((slot = 16#$addr; slot < 16#$addr + 16#$size; slot += 8)); do
    target=$(awk -v o="$(printf '%016x' "$slot")" '$1 == o {print $NF}' <<<"$relocs")
    name=$(awk -v a="$(printf '%016x' "0x${target:-0}")" '$1 == a && $2 ~ /^[tT]$/ {print $3}' \
           <<<"$symbols" | head -n 1)
    [[ " $init_allowed " == *" ${name:-?} "* && $section == .init_array ]] ||
      fail "runs ${name:-unknown code at 0x${target:-?}} at load ($section)"
  done
done

exit "$failed"

# Sourced by the scripts (POSIX sh, so bench.sh can use it too): installs the Debian packages named
# when any of them is missing, quietly; as root, or through sudo otherwise.
#
#   . scripts/lib/packages.sh
#   ensure_packages cmake ninja-build g++
ensure_packages() {
  _pkg_missing=""
  for _pkg in "$@"; do
    dpkg -s "$_pkg" >/dev/null 2>&1 || _pkg_missing="$_pkg_missing $_pkg"
  done
  [ -n "$_pkg_missing" ] || return 0
  echo "== installing:$_pkg_missing" >&2
  _pkg_sudo=""
  [ "$(id -u)" -eq 0 ] || _pkg_sudo=sudo
  $_pkg_sudo apt-get update -qq
  # shellcheck disable=SC2086  # one word per package
  $_pkg_sudo env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq $_pkg_missing >/dev/null
}

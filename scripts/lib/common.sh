# Shared by the scripts of this folder, which source it: messages, and the installation of Debian
# packages that are missing. It expects the variable root to name the top of the tree.
# shellcheck shell=bash

export LC_ALL=C.UTF-8

say() {
  printf '%s: %s\n' "${0##*/}" "$*"
}

die() {
  printf '%s: %s\n' "${0##*/}" "$*" >&2
  exit 1
}

# as_root COMMAND... runs it as root, through sudo where that is needed.
as_root() {
  if [[ $(id -u) -eq 0 ]]; then
    "$@"
  elif command -v sudo >/dev/null; then
    sudo "$@"
  else
    die "this needs root, and there is no sudo: $*"
  fi
}

package_installed() {
  [[ $(dpkg-query -W -f '${db:Status-Status}' "$1" 2>/dev/null) == installed ]]
}

# need_packages NAME... installs those of the named packages that are missing.
need_packages() {
  local package missing=()
  for package in "$@"; do
    package_installed "$package" || missing+=("$package")
  done
  [[ ${#missing[@]} -eq 0 ]] && return 0

  local install=(env DEBIAN_FRONTEND=noninteractive apt-get -q -y -o DPkg::Lock::Timeout=300
    -o Dpkg::Use-Pty=0 install --no-install-recommends "${missing[@]}")
  local log
  log=$(mktemp)
  say "installing with apt-get: ${missing[*]}"
  # A mirror that is being updated fails for a moment; its older lists may still serve.
  local attempt
  for attempt in 1 2 3; do
    as_root apt-get -q -o DPkg::Lock::Timeout=300 update >"$log" 2>&1 ||
      say "apt-get update reported errors; going on with the lists at hand"
    if as_root "${install[@]}" >>"$log" 2>&1; then
      rm -f "$log"
      return 0
    fi
    say "apt-get install failed (attempt $attempt of 3)"
    sleep $((attempt * 5))
  done
  cat "$log" >&2
  rm -f "$log"
  die "could not install: ${missing[*]}"
}

# quietly LOG COMMAND... runs it with its output in LOG, which is shown when the command fails.
quietly() {
  local log=$1
  shift
  "$@" >"$log" 2>&1 && return 0
  cat "$log" >&2
  return 1
}

# source_files lists the C and C++ sources of the tree, relative to its top.
source_files() {
  git -C "${root:?}" ls-files --cached --others --exclude-standard -- '*.h' '*.hpp' '*.c' '*.cc' 2>/dev/null |
    sort -u | while read -r file; do
    if [[ -f ${root:?}/$file ]]; then
      printf '%s\n' "$file"
    fi
  done
}

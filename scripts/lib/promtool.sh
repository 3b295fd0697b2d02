# Sourced by scripts/build: unpacks promtool from Debian's package prometheus into build/promtool. It
# is not installed: with it would come a server, which begins to work.
# shellcheck shell=bash

# need_promtool gets it unless it is there. Without it the test that wants it is skipped.
need_promtool() {
  local folder=${root:?}/build/promtool
  [[ -x $folder/usr/bin/promtool ]] && return 0
  command -v promtool >/dev/null && return 0
  rm -rf "$folder"
  mkdir -p "$folder"
  if (cd "$folder" && apt-get -q -o APT::Sandbox::User="$(id -un)" download prometheus &&
    dpkg-deb --fsys-tarfile ./*.deb | tar -x ./usr/bin/promtool) >"$folder/log" 2>&1; then
    rm "$folder"/*.deb
    return 0
  fi
  say "promtool cannot be had with apt-get; see build/promtool/log"
}

# Sourced by scripts/build: unpacks libcrypto, libuuid, libsmartcols and curses for i386, run time
# and headers, from Debian's packages into build/i386-sysroot, and for the benchmarks Google Benchmark
# into build/i386-benchmark and the peers that the library is held against into build/i386-peers.
# Nothing is installed: side by side with the system's own packages they could only be had in exactly
# the same version, and mirrors do not update all architectures at once. apt works on lists of its
# own, so the system's configuration stays as is.
# shellcheck shell=bash

sysroot_packages=(libssl3 libssl-dev libuuid1 uuid-dev libsmartcols1 libsmartcols-dev
  libncursesw6 libtinfo6 libncurses-dev)
benchmark_packages=(libbenchmark1debian libbenchmark-dev)
peer_packages=(libsnmp40 libsnmp-dev libprotobuf-c1 libprotobuf-c-dev libcbor0.8 libcbor-dev
  libcoap3)

# sysroot_apt TOOL ARGS... runs apt-get or apt-cache for i386 on the private lists.
sysroot_apt() {
  local tool=$1
  shift
  "$tool" -q \
    -o APT::Architecture=i386 -o APT::Architectures=i386 \
    -o Dir::State::lists="$sysroot/apt/lists" -o Dir::State::status="$sysroot/apt/status" \
    -o Dir::Cache="$sysroot/apt/cache" -o APT::Sandbox::User="$(id -un)" \
    -o Acquire::Languages=none "$@"
}

# sysroot_update fetches the lists. A failure of one of them is no failure: another may serve.
sysroot_update() {
  mkdir -p "$sysroot"/apt/{lists,cache/archives}/partial
  : >"$sysroot/apt/status"
  sysroot_apt apt-get update >"$sysroot/apt/update.log" 2>&1 ||
    say "apt-get update for i386 reported errors; going on with the lists at hand"
}

# sysroot_versions PACKAGE prints the versions that can be had, the candidate first.
sysroot_versions() {
  {
    sysroot_apt apt-cache policy "$1" | awk '$1 == "Candidate:" && $2 != "(none)" { print $2 }'
    sysroot_apt apt-cache madison "$1" | awk -F ' *[|] *' '{ print $2 }'
  } 2>/dev/null | awk 'NF && !seen[$1]++ { print $1 }'
}

# sysroot_unpack PACKAGE downloads and unpacks the first version that the mirror hands out.
sysroot_unpack() {
  local package=$1 version debs=$sysroot/apt/debs
  while read -r version; do
    rm -rf "$debs"
    mkdir -p "$debs"
    if (cd "$debs" && sysroot_apt apt-get download "$package=$version") \
      >>"$sysroot/apt/download.log" 2>&1; then
      dpkg -x "$debs"/*.deb "$sysroot"
      printf '%s=%s\n' "$package" "$version" >>"$sysroot/apt/unpacked"
      return 0
    fi
    say "$package $version for i386 cannot be had at the moment"
  done < <(sysroot_versions "$package")
  return 1
}

# need_i386_sysroot makes build/i386-sysroot unless it is there.
need_i386_sysroot() {
  need_unpacked_for_i386 i386-sysroot "${sysroot_packages[@]}"
}

# need_i386_benchmark makes build/i386-benchmark unless it is there.
need_i386_benchmark() {
  need_unpacked_for_i386 i386-benchmark "${benchmark_packages[@]}"
}

# need_i386_peers makes build/i386-peers unless it is there.
need_i386_peers() {
  need_unpacked_for_i386 i386-peers "${peer_packages[@]}"
}

# holds_packages FILE PACKAGE... tells whether a list of what was unpacked has all of the packages.
holds_packages() {
  local list=$1 package
  [[ -f $list ]] || return 1
  for package in "${@:2}"; do
    grep -q "^$package=" "$list" || return 1
  done
}

# need_unpacked_for_i386 FOLDER PACKAGE... unpacks the packages into build/FOLDER unless they are
# there.
need_unpacked_for_i386() {
  local folder=$1 attempt package missing=("${@:2}") left
  sysroot=${root:?}/build/$folder
  holds_packages "$sysroot/complete" "${missing[@]}" && return 0
  say "unpacking i386 packages into build/$folder: ${missing[*]}"
  rm -rf "$sysroot"
  for attempt in 1 2 3; do
    sysroot_update
    left=()
    for package in "${missing[@]}"; do
      sysroot_unpack "$package" || left+=("$package")
    done
    missing=("${left[@]}")
    if [[ ${#missing[@]} -eq 0 ]]; then
      # Its last act, so that an interrupted run starts anew.
      mv "$sysroot/apt/unpacked" "$sysroot/complete"
      rm -rf "$sysroot/apt"
      return 0
    fi
    say "still missing for i386 (attempt $attempt of 3): ${missing[*]}"
    sleep $((attempt * 5))
  done
  cat "$sysroot"/apt/{update,download}.log >&2 || true
  die "could not get for i386: ${missing[*]}"
}

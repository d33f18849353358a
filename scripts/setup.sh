# shellcheck shell=bash disable=SC2034
# What the commands at the root share: packages, configuring, building. Sourced with bash.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd -P)

build_packages=(g++ cmake ninja-build pkg-config libsndfile1-dev libsoxr-dev libcli11-dev
    libsystemd-dev libasound2-dev libutfcpp-dev libunistring-dev)
test_packages=(libgtest-dev libgmock-dev clang-format clang-tidy dbus systemd)
bench_packages=(sox ffmpeg)

say() { printf '%s\n' "$*" >&2; }
die() {
    say "$@"
    exit 1
}

# quietly LOG COMMAND…: runs COMMAND; what it prints goes to LOG and is shown only when it fails.
quietly() {
    local log=$1
    shift
    mkdir -p "$(dirname "$log")"
    "$@" >"$log" 2>&1 </dev/null || {
        cat "$log" >&2
        return 1
    }
}

# sources PATTERN…: the C++ files whose names match, each ended by a zero byte.
sources() {
    local folder pattern names=(-false)
    for pattern in "$@"; do
        names+=(-o -name "$pattern")
    done
    for folder in platform card store state stream engines server host waveplay tests bench fuzz; do
        [[ ! -d $root/$folder ]] || (cd "$root" && find "$folder" \( "${names[@]}" \) -print0)
    done | sort -z
}

# skip_unless_version TOOL MAJOR: its verdicts differ from one major version to the next.
skip_unless_version() {
    local version
    version=$("$1" --version | grep -om 1 'version [0-9]*')
    [[ $version == "version $2" ]] && return
    echo "skipped: $1 has $version, the sources keep to $2"
    exit 0
}

missing_packages() {
    local package installed
    installed=$(dpkg-query -W -f='${db:Status-Status} ${Package}\n' "$@" 2>/dev/null) || true
    for package in "$@"; do
        [[ $'\n'$installed$'\n' == *$'\n'"installed $package"$'\n'* ]] || echo "$package"
    done
}

# Root's rights for one command; sudo may ask for its password only where somebody can answer.
as_root() {
    if ((EUID == 0)); then
        "$@"
    elif [[ -t 0 && -t 2 ]]; then
        sudo "$@"
    else
        sudo -n "$@"
    fi
}

apt_get() {
    as_root env DEBIAN_FRONTEND=noninteractive apt-get -q -o DPkg::Lock::Timeout=120 "$@"
}

# Takes nothing away: where a package would have to go (PulseAudio for pipewire-alsa), it fails and
# says which.
apt_install() {
    apt_get install -y --no-remove --no-install-recommends "$@" && return
    apt_get update && apt_get install -y --no-remove --no-install-recommends "$@"
}

# need_packages PACKAGE…: installs those that are missing, or says which and ends.
need_packages() {
    local missing log
    # On another distribution the build itself says what it lacks.
    command -v dpkg-query >/dev/null || return 0
    mapfile -t missing < <(missing_packages "$@")
    ((${#missing[@]} > 0)) || return 0
    as_root true 2>/dev/null || die "missing packages, and neither root nor sudo to install them." \
        "As root: apt-get install ${missing[*]}"
    say "installing missing packages: ${missing[*]}"
    log=$(mktemp)
    if ! apt_install "${missing[@]}" >"$log" 2>&1; then
        tail -n 15 "$log" >&2
        rm -f "$log"
        die "missing packages could not be installed. As root: apt-get install ${missing[*]}"
    fi
    rm -f "$log"
}

tree_of() {
    if [[ $1 == release ]]; then echo "$root/build"; else echo "$root/build/$1"; fi
}

# configured TREE OPTION…: TREE is a build tree of this very source folder with every OPTION on.
configured() {
    local cache=$1/CMakeCache.txt option
    shift
    grep -qsFx "CMAKE_HOME_DIRECTORY:INTERNAL=$root" "$cache" || return 1
    for option in "$@"; do
        grep -qx "$option:BOOL=ON" "$cache" || return 1
    done
}

# configure PRESET [OPTION…]: options are only ever turned on in a tree that is this folder's, so
# that playing, testing and measuring share one and do not rebuild each other's work.
configure() {
    local preset=$1 tree option arguments=()
    tree=$(tree_of "$preset")
    shift
    if configured "$tree" "$@" && [[ -f $tree/build.ninja ]]; then
        return
    fi
    configured "$tree" || arguments+=(--fresh -DTOLVAR_TESTS=OFF -DTOLVAR_BENCH=OFF)
    for option in "$@"; do
        arguments+=("-D$option=ON")
    done
    quietly "$tree/configure.log" cmake -S "$root" --preset "$preset" "${arguments[@]}"
}

# build PRESET [TARGET…]: a second build of the same tree waits for the first.
build() {
    local tree targets=()
    tree=$(tree_of "$1")
    shift
    (($# == 0)) || targets=(--target "$@")
    (
        flock 9
        quietly "$tree/build.log" cmake --build "$tree" "${targets[@]}" 9>&-
    ) 9>"$tree/.lock"
}

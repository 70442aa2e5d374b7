# Functions that several scripts use. Sourced by bash with errexit, nounset and pipefail.

script_help() { sed -n '1d; /^#/!q; s/^# \?//p' "$(dirname "${BASH_SOURCE[0]}")/$(basename "$0")"; }

# help_if_asked ARGUMENT...: prints the comment at the top of the script and exits if the first argument is --help.
help_if_asked() {
    case ${1-} in
        -h | --help)
            script_help
            exit 0
            ;;
    esac
}

# Prints the first line of the script's help and exits with 2.
usage_error() {
    script_help | head -n 1 >&2
    exit 2
}

# install_packages PACKAGE...: installs Debian packages, as root or with sudo.
install_packages() {
    local as_root=()
    if ((EUID != 0)); then
        if ! command -v sudo >/dev/null; then
            echo "cannot install packages without root or sudo; run as root:" \
                "apt-get install --no-install-recommends $*" >&2
            return 1
        fi
        as_root=(sudo)
    fi
    "${as_root[@]}" apt-get update --quiet
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install --quiet --yes --no-install-recommends "$@" </dev/null
}

# configure PRESET: runs CMake in the root of the tree, the first time and after the presets or the installed packages
# have changed.
configure() {
    local folder=build/$1
    if [[ -f $folder/build.ninja && $folder/configured -nt CMakePresets.json ]]; then
        return 0
    fi
    cmake --preset "$1" && touch "$folder/configured"
}

# build PRESET [TARGET...]: configures and builds in the root of the tree.
build() {
    configure "$1" && cmake --build --preset "$1" --parallel "$(nproc)" ${2:+--target "${@:2}"}
}

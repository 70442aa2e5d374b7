# What several scripts do. Sourced in the root of the tree, in bash with errexit, nounset and pipefail.

# install_packages PACKAGE...: from Debian, as root or with sudo.
install_packages() {
    local as_root=()
    if ((EUID != 0)); then
        if ! command -v sudo >/dev/null; then
            echo "installing packages takes root, and there is no sudo; as root:" \
                "apt-get install --no-install-recommends $*" >&2
            return 1
        fi
        as_root=(sudo)
    fi
    "${as_root[@]}" apt-get update --quiet
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install --quiet --yes --no-install-recommends "$@" </dev/null
}

# configure PRESET: once, and again after the presets or the installed packages have changed.
configure() {
    local folder=build/$1
    if [[ -f $folder/build.ninja && $folder/configured -nt CMakePresets.json ]]; then
        return 0
    fi
    cmake --preset "$1" && touch "$folder/configured"
}

# build PRESET [TARGET...]
build() {
    configure "$1" && cmake --build --preset "$1" --parallel "$(nproc)" ${2:+--target "${@:2}"}
}

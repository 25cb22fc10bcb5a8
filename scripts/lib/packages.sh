# Installs the Debian packages named as arguments that are not installed yet
# (names may carry an architecture, e.g. libgtest-dev:i386).
ensure_packages() {
    local missing=() pkg
    for pkg in "$@"; do
        dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q 'install ok installed' || missing+=("$pkg")
    done
    [ ${#missing[@]} -eq 0 ] && return 0

    if printf '%s\n' "${missing[@]}" | grep -q ':i386$' &&
        ! dpkg --print-foreign-architectures | grep -qx i386; then
        dpkg --add-architecture i386
    fi
    echo "Installing: ${missing[*]}" >&2
    # One mirror index failing (a sync in progress) does not stop the installs.
    apt-get update -qq || echo "apt-get update reported a failure; trying the installs anyway" >&2
    DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" >&2

    for pkg in "${missing[@]}"; do
        if ! dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q 'install ok installed'; then
            echo "Package $pkg could not be installed" >&2
            return 1
        fi
    done
}

# The version on the project line of CMakeLists.txt, the one source of it.
project_version() {
    sed -n 's/^project(veltcheck VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt
}

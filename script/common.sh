# Shared by the scripts of this folder; sourced, not run.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

say() { printf '\n== %s\n' "$*"; }

# Installs the packages that are missing, and says so; does nothing when none is. Fails when one cannot be
# installed: that ends a script, unless it asks.
need_packages() {
    local package missing=() root=()
    for package in "$@"; do
        dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'ok installed' || missing+=("$package")
    done
    [ ${#missing[@]} -gt 0 ] || return 0
    [ "$(id -u)" -eq 0 ] || root=(sudo)
    say "installing ${missing[*]}"
    "${root[@]}" apt-get update -qq
    DEBIAN_FRONTEND=noninteractive "${root[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
}

need_build_packages() {
    need_packages g++ cmake ninja-build libgtest-dev libgmock-dev libcli11-dev nlohmann-json3-dev zlib1g-dev
}

# Configures and builds a preset, or only some targets of it.
build() { # preset, targets...
    say "building $1"
    cmake --preset "$1" >/dev/null
    cmake --build --preset "$1" --parallel "$(nproc)" ${2:+--target "${@:2}"} -- --quiet
}

# Checks a module's file: it exports four functions, needs no library but the system's and, on Linux, the compiler's,
# and on Windows has a version.
check_module() { # file
    local expected='DllCanUnloadNow DllGetClassObject DllRegisterServer DllUnregisterServer ' found headers
    if [[ $1 == *.dll ]]; then
        expected+='advapi32.dll comctl32.dll comdlg32.dll kernel32.dll msvcrt.dll ole32.dll oleaut32.dll user32.dll ws2_32.dll version'
        headers=$(x86_64-w64-mingw32-objdump -p "$1")
        found=$(sed -n '/^\[Ordinal\/Name Pointer\]/,/^$/s/^\t\[ *[0-9]*\] //p' <<<"$headers" | sort | tr '\n' ' ')
        found+=$(sed -n 's/^\tDLL Name: //p' <<<"$headers" | tr 'A-Z' 'a-z' | sort | tr '\n' ' ')
        [ "$(tr -d '\0' <"$1" | grep -ac VS_VERSION_INFO)" = 0 ] || found+=version
    else
        found=$(nm -D --defined-only "$1" | awk '{ print $NF }' | sort | tr '\n' ' ')
        found+=$(readelf -d "$1" | sed -nE '/NEEDED/s/.*\[(.*)\]/\1/p' | grep -vE '^(libstdc\+\+|libgcc_s|lib[cm]|ld-linux.*)\.so' || true)
    fi
    [ "$found" != "$expected" ] || return 0
    echo "$1 has: $found" >&2
    return 1
}

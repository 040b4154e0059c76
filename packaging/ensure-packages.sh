#!/bin/bash
# ensure-packages.sh SECTION... - sees to it that the packages of these sections of
# debian-packages.txt are installed. Nothing is asked of apt while none is missing. Without the
# right to install it says what is needed and fails.
set -euo pipefail
list=$(dirname "$0")/debian-packages.txt

wanted=()
for section in "$@"; do
    grep -qxF "[$section]" "$list" || { echo "$list has no section [$section]" >&2; exit 2; }
    mapfile -t -O "${#wanted[@]}" wanted < <(
        awk -v section="[$section]" '/^\[/ { inside = $0 == section; next } inside && /^[^#]/' "$list")
done

if ! command -v dpkg-query >/dev/null || ! command -v apt-get >/dev/null; then
    echo "Not a Debian system: these packages, or what they are called here, must be installed:"
    echo "  ${wanted[*]}"
    exit 0
fi

missing=()
for package in "${wanted[@]}"; do
    status=$(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null || true)
    [[ $status == installed* ]] || missing+=("$package")
done
[ ${#missing[@]} -gt 0 ] || exit 0

if [ "$(id -u)" -eq 0 ]; then
    as_root=()
elif sudo -n true 2>/dev/null; then
    as_root=(sudo -n)
elif command -v sudo >/dev/null && [ -t 0 ]; then
    as_root=(sudo) # asks for the password
else
    echo "These packages are missing, and installing them takes an administrator:" >&2
    echo "  apt-get install --no-install-recommends ${missing[*]}" >&2
    exit 1
fi

echo "Installing ${missing[*]}"
apt=("${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -q -y)
"${apt[@]}" update || echo "The package lists could not be renewed; going on with those there are." >&2
if ! "${apt[@]}" install --no-install-recommends "${missing[@]}" </dev/null; then
    echo "Could not install: ${missing[*]}" >&2
    exit 1
fi

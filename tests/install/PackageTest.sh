#!/usr/bin/env bash
# Makes the Debian package from the build directory as `make package` does, unpacks it into a scratch root
# and checks what a user would get: the tool runs from there, the desktop entry, file type, icon and manual
# pages are valid and agree with each other, and every library the programs link comes from a package the
# .deb depends on. Usage: PackageTest.sh BUILD_DIR
set -euo pipefail

build=$(cd "$1" && pwd)
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
failures=0
fail() {
    echo "FAIL: $*" >&2
    failures=$((failures + 1))
}
need() {
    command -v "$1" >/dev/null || { echo "FAIL: $1 is missing: install $2 (scripts/install-deps does)" >&2; exit 1; }
}
need dpkg-deb dpkg
need desktop-file-validate desktop-file-utils
need xmllint libxml2-utils
need update-mime-database shared-mime-info
need groff groff-base

# The package, from what the build already holds: cpack installs into its own staging directory and
# compresses, nothing is compiled.
(cd "$scratch" && cpack -G DEB --config "$build/CPackConfig.cmake" -B "$scratch/out" >"$scratch/cpack.log" 2>&1) ||
    { cat "$scratch/cpack.log" >&2; fail "cpack could not make the package"; exit 1; }
deb=$(find "$scratch/out" -maxdepth 1 -name 'marlowick_*.deb' | head -n 1)
[ -n "$deb" ] || { fail "cpack made no marlowick_*.deb"; exit 1; }
root="$scratch/root"
dpkg-deb -x "$deb" "$root"
echo "package: $(basename "$deb"), $(du -k "$deb" | cut -f1) KiB"

# The tool runs from the unpacked tree against the system's libraries, and is the version the build has.
marlowick="$root/usr/bin/marlowick"
[ -x "$marlowick" ] || { fail "the package has no usr/bin/marlowick"; exit 1; }
help=$("$marlowick" --help) || fail "marlowick --help failed"
grep -q '^Usage: marlowick COMMAND' <<<"$help" || fail "marlowick --help printed no usage"
version=$(dpkg-deb -f "$deb" Version)
[ "$("$marlowick" --version)" = "marlowick $version" ] || fail "marlowick --version isn't the package's $version"

# The stripped programs keep no debugging sections.
for program in "$root"/usr/bin/*; do
    ! readelf -S "$program" | grep -q '\.debug_info' || fail "$(basename "$program") is not stripped"
done

# Every library a program links directly is in a package named in Depends.
libraries=$(ldconfig -p)
depends=$(dpkg-deb -f "$deb" Depends | tr ',' '\n' | sed 's/^ *//;s/[ (].*//' | grep -v '^$')
for program in "$root"/usr/bin/*; do
    ! ldd "$program" | grep 'not found' || fail "$(basename "$program") has libraries that are not found"
    for library in $(readelf -d "$program" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p'); do
        path=$(awk -v name="$library" '$1 == name && /x86-64/ { print $NF; exit }' <<<"$libraries")
        [ -n "$path" ] || { fail "$library, linked by $(basename "$program"), is not installed"; continue; }
        owner=$(dpkg -S "$(readlink -f "$path")" 2>/dev/null | head -n 1 | cut -d: -f1) || true
        [ -n "$owner" ] || owner=$(dpkg -S "$path" 2>/dev/null | head -n 1 | cut -d: -f1) || true
        grep -qx "$owner" <<<"$depends" ||
            fail "$(basename "$program") links $library from $owner, which Depends doesn't name"
    done
done

# The desktop entry is valid, starts a program the package installs, and names the package's type and icon.
desktop="$root/usr/share/applications/marlowick-studio.desktop"
if [ -f "$desktop" ]; then
    desktop-file-validate "$desktop" || fail "desktop-file-validate rejects marlowick-studio.desktop"
    exec=$(sed -n 's/^Exec=\([^ ]*\).*/\1/p' "$desktop")
    [ -x "$root/usr/bin/$exec" ] || fail "the desktop entry starts $exec, which the package doesn't install"
    grep -q '^Exec=.* %f$' "$desktop" || fail "the desktop entry doesn't pass the opened package as %f"
    icon=$(sed -n 's/^Icon=//p' "$desktop")
    svg="$root/usr/share/icons/hicolor/scalable/apps/$icon.svg"
    [ -f "$svg" ] || fail "the desktop entry's icon $icon isn't in the hicolor theme"
    xmllint --noout "$svg" || fail "the icon isn't well-formed SVG"
    mimeTypes=$(sed -n 's/^MimeType=//p' "$desktop" | tr ';' '\n' | grep -v '^$')
else
    fail "the package has no desktop entry"
    mimeTypes=""
fi

# The file type is valid shared-mime-info, and a package's name resolves to the type the entry opens.
mime="$root/usr/share/mime"
xmllint --noout "$mime/packages/marlowick.xml" || fail "marlowick.xml isn't well-formed"
cp -r "$mime" "$scratch/mime"
update-mime-database "$scratch/mime" >"$scratch/mime.log" 2>&1 ||
    { cat "$scratch/mime.log" >&2; fail "update-mime-database rejects marlowick.xml"; }
globbed=$(awk -F: '$3 == "*.marlowick" { print $2 }' "$scratch/mime/globs2")
[ -n "$globbed" ] || fail "no type claims *.marlowick"
grep -qx "$globbed" <<<"$mimeTypes" || fail "*.marlowick is $globbed, which the desktop entry doesn't open"
grep -q "^$globbed inode/directory$" "$scratch/mime/subclasses" || fail "$globbed is not a kind of directory"

# Both manual pages are there and format without warnings.
for page in marlowick marlowick-studio; do
    file="$root/usr/share/man/man1/$page.1"
    if [ -f "$file" ]; then
        warnings=$(groff -z -ww -man "$file" 2>&1)
        [ -z "$warnings" ] || fail "$page.1 formats with warnings: $warnings"
    else
        fail "the package has no $page(1)"
    fi
done
# The tool's page holds a section for each command its help lists.
for command in $(sed -n '/^Commands:/,/^$/p' <<<"$help" | sed -n 's/^  \([a-z][a-z]*\) .*/\1/p'); do
    grep -q "^\.SS $command$" "$root/usr/share/man/man1/marlowick.1" || fail "marlowick(1) has no section on $command"
done

[ "$failures" -eq 0 ] || { echo "$failures failures" >&2; exit 1; }
echo "the package installs, runs and describes itself"

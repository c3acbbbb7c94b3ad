#!/usr/bin/env bash
# Inspects the Debian package that `make deb` made in a build folder, and fails at the first thing
# wrong with it: its control fields (the version is VERSION's, Depends came from dpkg-shlibdeps),
# its contents (the programs on /usr/bin, the library, the unit, the manual pages, the runbooks,
# the copyright file), the programs themselves run from the package unpacked into a folder of its
# own, the manual pages against each program's --help, and lintian, whose errors fail the check
# and whose warnings are shown.
# Usage: scripts/check-deb.sh [build folder]   (default build; relative to the repository's root)
set -euo pipefail
cd "$(dirname "$0")/.."
build="${1:-build}"
version="$(tr -d '[:space:]' <VERSION)"
deb="$build/quillon_${version}_$(dpkg --print-architecture).deb"
programs=(quillon-mcp quillon-gateway quillon-hook)

fail() { echo "check-deb: $*" >&2; exit 1; }
command -v lintian >/dev/null || fail "lintian is not installed (scripts/install-deps.sh test installs it)"
[ -f "$deb" ] || fail "no $deb; make it with: make deb BUILD=$build"
echo "check-deb: $deb"

# The control fields.
field() { dpkg-deb -f "$deb" "$1"; }
[ "$(field Package)" = quillon ] || fail "Package is '$(field Package)', not quillon"
[ "$(field Version)" = "$version" ] || fail "Version is '$(field Version)', VERSION says $version"
depends="$(field Depends)"
# dpkg-shlibdeps names at least the C library every program links.
[[ "$depends" == *libc6* ]] || fail "Depends is '$depends': dpkg-shlibdeps did not fill it"
echo "  Depends: $depends"

# The contents: every path the package must hold, and nothing outside /usr.
listing="$(dpkg-deb -c "$deb")"
paths="$(awk '{print $6}' <<<"$listing")"
expected=(./usr/lib/quillon/libquillon-frames.so ./usr/lib/quillon/VERSION
          ./usr/lib/systemd/user/quillon-gateway.service ./usr/share/doc/quillon/copyright
          ./usr/share/doc/quillon/changelog.gz ./usr/share/doc/quillon/README.md.gz)
for program in "${programs[@]}"; do
  expected+=("./usr/bin/$program" "./usr/lib/quillon/$program" "./usr/share/man/man1/$program.1.gz")
done
for runbook in runbooks/*.md; do
  expected+=("./usr/share/quillon/runbooks/${runbook#runbooks/}")
done
for path in "${expected[@]}"; do
  grep -qxF -- "$path" <<<"$paths" || fail "the package has no $path"
done
stray="$(grep -v '^\./$\|^\./usr/' <<<"$paths" || true)"
[ -z "$stray" ] || fail "the package holds files outside /usr: $stray"
owners="$(awk '$2 != "root/root"' <<<"$listing")"
[ -z "$owners" ] || fail "files not owned by root: $owners"

# Unpacked into a folder of its own, the package runs where it lies: each program finds VERSION
# and the frames library beside its own executable (/proc/self/exe), never through the loader's
# search path, so no LD_LIBRARY_PATH is needed.
root="$(mktemp -d)"
trap 'rm -rf "$root"' EXIT
dpkg-deb -x "$deb" "$root"
for program in "${programs[@]}"; do
  [ "$(readlink "$root/usr/bin/$program")" = "../lib/quillon/$program" ] ||
    fail "/usr/bin/$program is not a link to ../lib/quillon/$program"
  said="$("$root/usr/bin/$program" --version)" || fail "$program --version failed"
  [ "$said" = "$program $version" ] || fail "$program --version says '$said', not '$program $version'"
done
for binary in "${programs[@]/#/$root/usr/lib/quillon/}" "$root/usr/lib/quillon/libquillon-frames.so"; do
  file -b "$binary" | grep -q ', stripped' || fail "${binary#"$root"} is not stripped"
done
missing="$(ldd "$root/usr/lib/quillon/libquillon-frames.so" | grep 'not found' || true)"
[ -z "$missing" ] || fail "libquillon-frames.so lacks: $missing"
grep -qx 'ExecStart=/usr/lib/quillon/quillon-gateway' "$root/usr/lib/systemd/user/quillon-gateway.service" ||
  fail "the unit's ExecStart is not /usr/lib/quillon/quillon-gateway"
# The hook registers the quillon-mcp beside it: in the package's layout it must find one.
HOME="$root/home" "$root/usr/bin/quillon-hook" install --agent all --dry-run >/dev/null ||
  fail "quillon-hook install --dry-run fails in the package's layout"

# The manual pages are written by hand; each must name every command, option and variable that
# its program's --help names.
for program in "${programs[@]}"; do
  help="$("$root/usr/bin/$program" --help)"
  page="$(gzip -dc "$root/usr/share/man/man1/$program.1.gz" | sed -e 's/\\-/-/g' -e 's/\\f[BIRP]//g')"
  # The lower-case words of its usage lines are commands and the values they take (what follows
  # two blanks or stands in parentheses there describes them); options and variables count
  # anywhere in the text.
  words="$(sed -nE "s/^(usage:)? +$program( |$)//p" <<<"$help" | sed -E 's/  .*//; s/\([^)]*\)//g' |
             tr ' |[]' '\n' | grep -xE '[a-z][a-z-]*' || true
           grep -oE -- '--[a-z][a-z-]*|\b[A-Z][A-Z0-9]*_[A-Z0-9_]+\b' <<<"$help" || true)"
  for word in $(sort -u <<<"$words"); do
    grep -qwF -- "$word" <<<"$page" || fail "$program.1 does not mention '$word', which $program --help names"
  done
done

# lintian: errors fail, warnings are listed (packaging/deb/lintian-overrides says which are
# accepted, and why).
lintian --fail-on error --tag-display-limit 0 "$deb" || fail "lintian found errors in $deb"
echo "check-deb: $deb is sound"

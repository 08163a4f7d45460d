#!/usr/bin/env bash
# Builds the container image: the command, the shared libraries that it needs, and what these read, out of the Debian
# packages of this machine. No registry is asked. The same inputs make the same image.
#   image.sh BUILD_FOLDER IMAGE_FILE        IMAGE_FILE: NAME.tar, for `podman load`, `docker load` and skopeo
# Exit code 77: what it needs is missing, or may make no containers here.
set -euo pipefail
for tool in buildah tini dpkg-query; do
  command -v $tool >/dev/null || { echo "$tool is not installed"; exit 77; }
done
# Not the superuser: one of a namespace of its own.
[ "$(id -u)" = 0 ] || exec buildah unshare "$0" "$@"

build=$1 output=$2
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
user=10001  # the number is fixed: volumes belong to it
fail() { echo "image.sh: $*" >&2; exit 1; }

work=$(mktemp -d)
export BUILDAH_FORMAT=docker  # that of the OCI has no health check
storage() { buildah --root "$work/storage" --runroot "$work/run" --storage-driver vfs "$@"; }
trap 'storage rm --all >/dev/null 2>&1 || true; rm -rf "$work"' EXIT
container=$(storage from scratch) || { echo "buildah can make no container here"; exit 77; }

root=$work/root
mkdir -m 755 "$root"
mkdir -p "$root"/{etc/ssl/certs,etc/tarvex,usr/bin,usr/lib,usr/lib64,usr/lib/ssl,usr/share,var/lib/dpkg/status.d,proc,sys,dev}
ln -s usr/lib "$root/lib"
ln -s usr/lib64 "$root/lib64"

# --- The command, as it is installed, without what only people at a terminal of the machine read.
DESTDIR=$work/installed cmake --install "$build" --prefix /usr --strip --component host >/dev/null
DESTDIR=$work/installed cmake --install "$build" --prefix /usr --strip --component library >/dev/null
installed=$work/installed/usr
cp "$installed/bin/tarvex" "$root/usr/bin/"
cp -r "$installed/share/tarvex" "$installed/share/locale" "$root/usr/share/"
mkdir -p "$root/usr/share/doc/tarvex"
cp "$installed/share/doc/tarvex/copyright" "$root/usr/share/doc/tarvex/"

# --- Files of Debian packages. Each package is noted, as scanners for known faults look for it, and with its licence.
packages=()
from_package() { # FILE
  local package
  package=$(dpkg-query -S "$1" 2>/dev/null || dpkg-query -S "/usr$1") || fail "$1 is in no package"
  packages+=("${package%%:*}")
}
copy() { # FILE: to the same place
  mkdir -p "$root/$(dirname "$1")"
  cp -L "$1" "$root/$1"
  from_package "$1"
}

libraries=$(dirname "$(find "$installed/lib" -name 'libtarvex.so.*' -type l)")
mkdir -p "$root${libraries#"$work/installed"}"
cp -L "$libraries"/libtarvex.so.? "$root${libraries#"$work/installed"}/"
copy /usr/bin/tini
needed=$(LD_LIBRARY_PATH=$libraries ldd "$root/usr/bin/tarvex" /usr/bin/tini)
[[ $needed != *'not found'* ]] || fail "a library is missing: $needed"
while read -r library; do copy "$library"; done < <(grep -oE '/[^ ]+\.so[^ ]*' <<<"$needed" | grep -v libtarvex | sort -u)

# Character sets of mails: all that the C library knows.
converters=$(dirname "$(dpkg-query -L libc6 | grep '/gconv/UTF-16\.so$')")
mkdir -p "$root/$converters"
cp -r "$converters"/. "$root/$converters"

# Time zones, and the certificates that the package trusts: not what this machine has added to them.
cp -a /usr/share/zoneinfo "$root/usr/share/"
rm -rf "$root"/usr/share/zoneinfo/{posix,right}
find /usr/share/ca-certificates/mozilla -name '*.crt' -print0 | LC_ALL=C sort -z | xargs -0 cat >"$root/etc/ssl/certs/ca-certificates.crt"
ln -s /etc/ssl/certs/ca-certificates.crt "$root/usr/lib/ssl/cert.pem"
packages+=(tzdata ca-certificates base-files)
cp -L /etc/os-release "$root/etc/"

for package in $(printf '%s\n' "${packages[@]}" | sort -u); do
  dpkg-query -W -f='Package: ${Package}\nStatus: ${Status}\nArchitecture: ${Architecture}\nVersion: ${Version}\nSource: ${source:Package} (${source:Version})\nMaintainer: ${Maintainer}\n' \
    "$package" >"$root/var/lib/dpkg/status.d/$package"
  mkdir -p "$root/usr/share/doc/$package"
  cp -L "/usr/share/doc/$package/copyright" "$root/usr/share/doc/$package/"
done

# --- The user, and where the command finds its tree. The tree is a folder in the volume, not the volume: a file system has a
# lost+found of its own, orchestrators let a group write into volumes, and `restore` needs a place beside the tree.
cp -r "$here/etc" "$root"
version=$("$build/bin/tarvex" --version | grep -oE '[0-9]+(\.[0-9]+)+' | head -1)
revision=$(git -C "$here" rev-parse HEAD 2>/dev/null || echo unknown)
moment=${SOURCE_DATE_EPOCH:-$(git -C "$here" log -1 --format=%ct 2>/dev/null || echo 0)}
find "$root" -exec touch -h -d "@$moment" {} +
chmod -R go=u-w "$root"
mkdir -m 1777 "$root/tmp"
install -d -m 0700 -o $user -g $user "$root/data"

# --- The image
cp -a "$root"/. "$(storage mount "$container")"
tarvex='"/usr/bin/tarvex", "--root", "/data/tree"'
storage config --user $user:$user --volume /data --workingdir / --env PATH=/usr/bin --env LANG=C.UTF-8 \
  --env XDG_CONFIG_HOME=/etc --env HOME=/data \
  --entrypoint "[\"/usr/bin/tini\", \"-s\", \"--\", $tarvex]" --cmd serve --stop-signal SIGTERM \
  --healthcheck "CMD /usr/bin/tarvex --root /data/tree health" --healthcheck-interval 60s --healthcheck-timeout 10s \
  --healthcheck-start-period 30s --healthcheck-retries 3 \
  --arch "$(dpkg --print-architecture)" --os linux --created-by "packaging/container/image.sh" \
  --label org.opencontainers.image.title=Tarvex \
  --label org.opencontainers.image.description="A mail-forwarding engine: POP3 mailboxes to SMTP addresses" \
  --label org.opencontainers.image.version="$version" --label org.opencontainers.image.revision="$revision" \
  --label org.opencontainers.image.created="$(date -u -d "@$moment" +%FT%TZ)" "$container"
name=localhost/tarvex:$version
storage commit --quiet --identity-label=false --timestamp "$moment" --omit-history "$container" "$name" >/dev/null
storage push --quiet "$name" "docker-archive:$work/image.tar:$name" >/dev/null

# What is left of the container that it was made in, two names at random, goes: so the same inputs make the same image.
archive=$work/archive
mkdir "$archive"
tar -xf "$work/image.tar" -C "$archive" --wildcards '*.json' '*.tar' --exclude='*/*'
layer=$(cd "$archive" && echo ./*.tar)
sed -E 's/"container":"[0-9a-f]+",//; s/"Hostname":"[0-9a-f]*"/"Hostname":""/g' "$archive"/*[0-9a-f].json >"$work/config"
rm "$archive"/*.json
config=$(sha256sum "$work/config" | cut -d' ' -f1).json
mv "$work/config" "$archive/$config"
printf '[{"Config":"%s","RepoTags":["%s"],"Layers":["%s"]}]\n' "$config" "$name" "${layer#./}" >"$archive/manifest.json"
mkdir -p "$(dirname "$output")"
tar -cf "$output.new" -C "$archive" --sort=name --mtime="@$moment" --owner=0 --group=0 --numeric-owner --mode=0644 \
  manifest.json "$config" "${layer#./}"
mv "$output.new" "$output"
echo "$name in $output: $(($(gzip -nc <"$archive/$layer" | wc -c) / 1000)) kB in a registry," \
  "$(($(stat -c %s "$archive/$layer") / 1000)) kB unpacked"

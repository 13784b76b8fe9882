#!/usr/bin/env bash
# Fails when a source file includes a header of a layer above its own (see
# docs/architecture.md). Quoted includes only: system headers are not layered.
set -euo pipefail
cd "$(dirname "$0")/.."

layers=(platform support datamap ipp providers engine api)
rank() {
  local i
  for i in "${!layers[@]}"; do
    [ "${layers[$i]}" = "$1" ] && { echo "$i"; return; }
  done
  echo -1
}

status=0
# The quoted include paths of a file that name a directory.
includes() { sed -nE 's/^\s*#\s*include\s+"([a-z_]+\/[^"]*)".*/\1/p' "$1"; }

for layer in "${layers[@]}"; do
  r=$(rank "$layer")
  while IFS= read -r -d '' file; do
    while IFS= read -r target; do
      if [ "$(rank "${target%%/*}")" -gt "$r" ]; then
        echo "$file: $layer may not include $target"
        status=1
      fi
    done < <(includes "$file")
  done < <(find "src/$layer" -type f \( -name '*.cpp' -o -name '*.h' \) -print0)
done

# The host and the tools sit beside the library: its public headers, plus the
# one shared text conversion the host links in its own copy of and the
# header-only reference holder.
while IFS= read -r -d '' file; do
  while IFS= read -r target; do
    case "$target" in
      norvane/* | platform/utf.h | support/ref.h) ;;
      *) if [ "$(rank "${target%%/*}")" -ge 0 ]; then
           echo "$file: may include only public headers, not $target"
           status=1
         fi ;;
    esac
  done < <(includes "$file")
done < <(find host tools/norvane -type f \( -name '*.cpp' -o -name '*.h' \) -print0)

# Public headers declare the interface and reach nothing internal.
while IFS= read -r -d '' file; do
  if includes "$file" | grep -qvE '^norvane/'; then
    echo "$file: a public header includes an internal one"
    status=1
  fi
done < <(find include -type f -name '*.h' -print0)

exit $status

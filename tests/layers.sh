#!/usr/bin/env bash
# Each source file includes headers only from the folders its layer may use.
# Usage: layers.sh ROOT PUBLIC_HEADERS RULE...
#   PUBLIC_HEADERS: comma-separated headers (src/-relative) other programs may include
#   RULE: "folder:layer,layer,..." (folders relative to ROOT; a layer is a folder
#         of src/, "public" allows the public headers only)
set -u
root=$1
IFS=, read -ra public <<< "$2"
shift 2
bad=0
for rule in "$@"; do
    folder=${rule%%:*}
    IFS=, read -ra allowed <<< "${rule#*:}"
    while IFS= read -r line; do
        file=${line%%:*}
        header=$(sed -n 's/^[[:space:]]*#[[:space:]]*include[[:space:]]*"\([^"]*\)".*/\1/p' <<< "${line#*:}")
        [ "$header" = "${header#*/}" ] && continue  # beside the file itself
        ok=0
        for layer in "${allowed[@]}"; do
            if [ "$layer" = public ]; then
                for h in "${public[@]}"; do [ "$header" = "$h" ] && ok=1; done
            elif [ "${header%%/*}" = "$layer" ]; then
                ok=1
            fi
        done
        if [ "$ok" = 0 ]; then
            echo "$file includes $header, outside the layers $folder may use (${rule#*:})"
            bad=1
        fi
    done < <(grep -rHE '^[[:space:]]*#[[:space:]]*include[[:space:]]*"' "$root/$folder")
done
if [ "$bad" = 0 ]; then echo "1 passed, 0 failed"; else echo "0 passed, 1 failed"; exit 1; fi

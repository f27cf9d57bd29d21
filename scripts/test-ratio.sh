#!/usr/bin/env bash
# Lines of test code against the rest: C++, Python and shell files that git tracks (generated
# stubs are not tracked). Keep the ratio at or under 0.40.
set -euo pipefail
cd "$(dirname "$0")/.."

# Tracked source files: by extension, or an extensionless script with a sh/bash/python shebang.
sources() {
    git ls-files | while IFS= read -r file; do
        case "$file" in
        *.cpp | *.cc | *.h | *.hpp | *.py | *.sh) echo "$file" ;;
        *)
            case "${file##*/}" in *.*) continue ;; esac
            if [ -f "$file" ] && head -n1 "$file" | grep -qE '^#!.*(sh|bash|python)'; then
                echo "$file"
            fi
            ;;
        esac
    done
}

lines() { xargs -r cat -- | wc -l; }

all=$(sources)
tests=$(grep '^tests/' <<<"$all" | lines)
support=$(grep -E '^(scripts|bench|fuzz|\.ci)/' <<<"$all" | lines)
product=$(grep -vE '^(tests|scripts|bench|fuzz|\.ci)/' <<<"$all" | lines)
other=$((support + product))

printf 'tests                          %6d\n' "$tests"
printf 'product, sdk, host, tools      %6d\n' "$product"
printf 'scripts, bench, fuzz, ci       %6d\n' "$support"
printf 'ratio tests / other code       %6s\n' "$(awk -v t="$tests" -v o="$other" 'BEGIN { printf "%.3f", t / o }')"

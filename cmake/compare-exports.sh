#!/usr/bin/env bash
# Compares what a POSIX shared library exports with what its Windows DLL
# exports, by demangled name, and fails on any difference: both builds mark
# their exports with the same macros, so the two lists must be one.
#   cmake/compare-exports.sh LIB.so LIB.dll [LIB2.so LIB2.dll ...]
# Exit 0 when every pair matches, 1 on a difference, 77 (skipped) when a
# library or a tool is missing, e.g. because the other leg is not built;
# with TSUTIL_EXPORTS_REQUIRED=1 (as in CI) a missing piece fails too.
set -euo pipefail

skip() {
    echo "skipped: $*"
    [ "${TSUTIL_EXPORTS_REQUIRED:-0}" = 1 ] && exit 1
    exit 77
}

pe_objdump=$(command -v x86_64-w64-mingw32-objdump || true)
[ -n "$pe_objdump" ] || skip "x86_64-w64-mingw32-objdump is not installed"
command -v nm >/dev/null && command -v c++filt >/dev/null || skip "nm or c++filt is not installed"
[ $# -ge 2 ] && [ $(($# % 2)) -eq 0 ] || { echo "usage: $0 LIB.so LIB.dll [...]" >&2; exit 2; }

# What differs between the two lists without being a difference in what the
# library offers, made equal on both sides:
# - the spelling of the 32-bit Win32 integers: DWORD and LONG are unsigned
#   long and long on Windows, unsigned int and int on POSIX; long is spelled
#   int on both sides (the library's interface uses the Win32 types);
# - va_list, a char * on Windows and __va_list_tag * on x86-64 POSIX;
#   both are spelled char *;
# - the type names of the C++ ABI ("typeinfo name for X"), which ELF exports
#   beside each type's typeinfo and a DLL keeps inside it, and the typeinfo
#   of pointer types ("typeinfo for X*", made for a throw of X *), which each
#   module makes for itself; both are matched by name at run time;
# - thread-local variables, which a mingw DLL exports as their emulated
#   control blocks (__emutls_v.NAME); the name is what is offered;
# - constructor and destructor variants (complete, base, deleting), which
#   demangle to one name: each name is listed once.
normalise() {
    sed 's/^__emutls_v\.//' | c++filt |
        perl -pe 's/\blong (long|double)\b/LONG_$1/g; s/\bunsigned long\b/unsigned int/g; s/\blong\b/int/g;
                  s/\bLONG_(long|double)\b/long $1/g; s/__va_list_tag\*/char*/g' |
        grep -v -E '^typeinfo name for |^typeinfo for .*\*$' |
        sort -u
}

posix_exports() { nm -D --defined-only -P "$1" | awk '$2 != "A" { print $1 }' | normalise; }

dll_exports() {
    "$pe_objdump" -p "$1" |
        sed -n '/\[Ordinal\/Name Pointer\] Table/,/^$/s/^[[:space:]]*\[ *[0-9]*\] //p' | normalise
}

failed=0
while [ $# -gt 0 ]; do
    so=$1 dll=$2
    shift 2
    [ -f "$so" ] || skip "$so is not built"
    [ -f "$dll" ] || skip "$dll is not built"
    if difference=$(diff <(posix_exports "$so") <(dll_exports "$dll")); then
        echo "$(basename "$so") and $(basename "$dll"): $(posix_exports "$so" | wc -l) exports, the same"
    else
        echo "$(basename "$so") (<) and $(basename "$dll") (>) export different names:"
        echo "$difference"
        failed=1
    fi
done
exit $failed

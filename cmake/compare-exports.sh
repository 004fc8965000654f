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
# - the widths of the integers: 64-bit Windows is LLP64 and POSIX LP64,
#   so the library's unsigned long (its time limits), DWORD and LONG, size_t
#   and WPARAM are each spelled differently on the two sides, and POSIX has
#   overloads for long beside those for the 32-bit Win32 types that are
#   long on Windows; every unsigned integer is spelled unsigned and every
#   signed one int, so the lists compare names and the order of the
#   parameters, and each name is listed once;
# - the instances of the standard library's templates that a library uses
#   inside (std::vector<...>::_M_realloc_insert and the like): ELF exports
#   them as weak symbols, since namespace std has default visibility, and a
#   DLL never does; they are nothing the library offers;
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
        perl -pe 's/\blong double\b/LONG_DOUBLE/g; s/\bunsigned (long long|long|int)\b/unsigned/g;
                  s/\b(long long|long)\b/int/g; s/\bLONG_DOUBLE\b/long double/g; s/__va_list_tag\*/char*/g' |
        grep -v -E '^typeinfo name for |^typeinfo for .*\*$' |
        sort -u
}

posix_exports() {
    nm -D --defined-only -P "$1" | awk '$2 != "A" && !($2 == "W" && $1 ~ /^_Z(NK?)?St/) { print $1 }' | normalise
}

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

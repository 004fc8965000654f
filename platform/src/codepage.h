// Code page tables, built once per code page from iconv: which bytes lead
// a double-byte character, what each character is in Unicode, and the
// case of single-byte letters. Conversions and the _mbs functions read
// these tables and never call iconv themselves.
#pragma once

#include <windows.h>

#include <stdint.h>

#include <vector>

namespace tsp {

struct CodePage {
    UINT id = 0;
    bool doubleByte = false;
    bool lead[256] = {};
    bool trail[256] = {};            // follows some lead byte
    uint16_t single[256] = {};       // Unicode of each single byte; 0xFFFF: none
    std::vector<uint16_t> pairs;     // double-byte pages: [lead << 8 | trail], 0xFFFF: none
    unsigned char lower[256] = {};   // single-byte case maps (identity where there is no case)
    unsigned char upper[256] = {};
};

// The tables of a code page; null for a page that iconv does not know
// (and for UTF-7 and UTF-8, which have no such tables). Thread-safe; the
// tables live until the process ends.
const CodePage *codePage(UINT id);

// The table of bytes alone (_MB_CP_SBCS): no lead bytes, ASCII case.
const CodePage *bytesOnlyCodePage();

// The process's ANSI and OEM code pages.
UINT ansiCodePage();
UINT oemCodePage();

} // namespace tsp

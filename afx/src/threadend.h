// Work at the end of a thread, whatever way it ends.
#pragma once

namespace afx {

// Has atEnd run on the calling thread when the thread ends, before the
// thread counts as ended for those who wait on it. One function per thread:
// a later call replaces an earlier one.
void CallAtThreadEnd(void (*atEnd)());

} // namespace afx

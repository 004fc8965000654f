#include "TestSupport.h"

#include <process.h>

namespace tstest {

namespace {

unsigned __stdcall runFunction(void *p)
{
    auto *f = static_cast<std::function<unsigned()> *>(p);
    unsigned r = (*f)();
    delete f;
    return r;
}

} // namespace

HANDLE StartThread(std::function<unsigned()> fn, bool suspended)
{
    auto *heapFn = new std::function<unsigned()>(std::move(fn));
    unsigned id;
    uintptr_t h = _beginthreadex(nullptr, 0, runFunction, heapFn, suspended ? CREATE_SUSPENDED : 0, &id);
    if (!h)
        delete heapFn;
    return reinterpret_cast<HANDLE>(h);
}

} // namespace tstest

// Per-thread state: CThreadLocal objects made on first use in each thread
// and deleted at its end, and guarded sections that delete what they
// caught.
#include <afxwin.h>

#include <TestSupport.h>

namespace {

int liveObjects;

struct Counted : CNoTrackObject {
    Counted() { ++liveObjects; }
    ~Counted() override { --liveObjects; }
    int value; // zero-filled by CNoTrackObject
};

CThreadLocal<Counted> perThread;

TEST(ThreadLocal, EachThreadHasItsOwnObjectUntilItEnds)
{
    Counted *mine = perThread.GetData();
    ASSERT_NE(mine, nullptr);
    EXPECT_EQ(perThread.GetData(), mine);
    mine->value = 5;
    int before = liveObjects;
    unsigned other = tstest::RunOnOtherThread([mine] {
        if (perThread.GetDataNA() != nullptr)
            return 1u;
        Counted *theirs = perThread;
        return theirs != mine && theirs->value == 0 && perThread->value == 0 ? 2u : 3u;
    });
    EXPECT_EQ(other, 2u);
    EXPECT_EQ(liveObjects, before) << "the other thread's object went with it";
    EXPECT_EQ(perThread.GetData()->value, 5);
}

int deletedExceptions;

class CountedException : public CException {
public:
    ~CountedException() override { ++deletedExceptions; }
};

TEST(GuardedSections, CaughtExceptionIsDeletedWhenTheBlockEnds)
{
    deletedExceptions = 0;
    bool caught = false;
    TRY
    {
        THROW(new CountedException);
    }
    CATCH(CountedException, e)
    {
        caught = e != nullptr;
        EXPECT_EQ(deletedExceptions, 0);
    }
    END_CATCH
    EXPECT_TRUE(caught);
    EXPECT_EQ(deletedExceptions, 1);
}

TEST(GuardedSections, ThrowLastHandsTheSameExceptionOutward)
{
    deletedExceptions = 0;
    CException *inner = nullptr;
    CException *outer = nullptr;
    TRY
    {
        TRY
        {
            THROW(new CountedException);
        }
        CATCH_ALL(e)
        {
            inner = e;
            THROW_LAST();
        }
        END_CATCH_ALL
    }
    CATCH(CException, e)
    {
        outer = e;
        EXPECT_EQ(deletedExceptions, 0);
    }
    END_CATCH
    EXPECT_EQ(inner, outer);
    EXPECT_EQ(deletedExceptions, 1);
}

TEST(GuardedSections, TryCleanupLeavesTheInnermostSectionOnce)
{
    deletedExceptions = 0;
    AFX_EXCEPTION_LINK *before = AfxGetThreadState()->m_exceptionContext.m_pLinkTop;
    {
        AFX_EXCEPTION_LINK outer;
        {
            AFX_EXCEPTION_LINK inner;
            EXPECT_EQ(inner.m_pLinkPrev, &outer);
            inner.m_pException = new CountedException;
            AfxTryCleanup();
            EXPECT_EQ(deletedExceptions, 1);
            EXPECT_EQ(AfxGetThreadState()->m_exceptionContext.m_pLinkTop, &outer);
        } // inner's end leaves outer in force
        EXPECT_EQ(AfxGetThreadState()->m_exceptionContext.m_pLinkTop, &outer);
    }
    EXPECT_EQ(AfxGetThreadState()->m_exceptionContext.m_pLinkTop, before);
    AfxTryCleanup(); // outside every section: nothing
    EXPECT_EQ(deletedExceptions, 1);
}

} // namespace

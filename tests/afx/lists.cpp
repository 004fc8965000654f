// CObList and CStringList: order, walking, node blocks, and what a failed
// allocation leaves behind.
#include <afxcoll.h>

#include "TestSupport.h"

#include <deque>
#include <vector>

namespace {

class Counted : public CObject {
public:
    explicit Counted(int v) : value(v) { ++alive; }
    ~Counted() override { --alive; }
    int value;
    static int alive;
};
int Counted::alive = 0;

std::vector<int> Values(const CObList &list)
{
    std::vector<int> out;
    for (POSITION pos = list.GetHeadPosition(); pos;)
        out.push_back(static_cast<Counted *>(list.GetNext(pos))->value);
    return out;
}

TEST(CObListTest, FirstInFirstOutAcrossNodeBlocks)
{
    std::deque<Counted> objects;
    CObList list(10);
    for (int i = 0; i < 25; ++i) {
        objects.emplace_back(i);
        POSITION pos = list.AddTail(&objects.back());
        ASSERT_NE(pos, nullptr);
        EXPECT_EQ(list.GetAt(pos), &objects.back());
    }
    EXPECT_EQ(list.GetCount(), 25);
    std::vector<int> expected;
    for (int i = 0; i < 25; ++i)
        expected.push_back(i);
    EXPECT_EQ(Values(list), expected);
    for (int i = 0; i < 12; ++i)
        EXPECT_EQ(static_cast<Counted *>(list.RemoveHead())->value, i);
    EXPECT_EQ(list.GetCount(), 13);
    EXPECT_EQ(static_cast<Counted *>(list.GetHead())->value, 12);
    // Freed nodes are used again, and the order still holds.
    for (int i = 0; i < 12; ++i)
        list.AddTail(&objects[static_cast<size_t>(i)]);
    EXPECT_EQ(list.GetCount(), 25);
    EXPECT_EQ(static_cast<Counted *>(list.GetTail())->value, 11);
}

TEST(CObListTest, RemovingNodesDeletesNoObject)
{
    int before = Counted::alive;
    {
        CObList list;
        for (int i = 0; i < 5; ++i)
            list.AddTail(new Counted(i));
        std::vector<CObject *> held;
        for (POSITION pos = list.GetHeadPosition(); pos;)
            held.push_back(list.GetNext(pos));
        list.RemoveAll();
        EXPECT_EQ(list.GetCount(), 0);
        EXPECT_EQ(list.GetHeadPosition(), nullptr);
        EXPECT_EQ(Counted::alive, before + 5);
        list.AddTail(held[0]); // the list works again after RemoveAll
        EXPECT_EQ(list.GetCount(), 1);
        for (CObject *o : held)
            delete o;
    } // the destructor drops the node and leaves the (deleted) object alone
    EXPECT_EQ(Counted::alive, before);
}

TEST(CObListTest, EditingInThePlace)
{
    Counted a(1), b(2), c(3), d(4);
    CObList list;
    EXPECT_EQ(list.RemoveHead(), nullptr); // an empty list stays empty
    EXPECT_EQ(list.RemoveTail(), nullptr);
    EXPECT_EQ(list.GetCount(), 0);
    POSITION pb = list.AddTail(&b);
    list.AddHead(&a);
    list.InsertAfter(pb, &d);
    list.InsertBefore(list.Find(&d), &c);
    EXPECT_EQ(Values(list), (std::vector<int>{1, 2, 3, 4}));
    EXPECT_EQ(list.FindIndex(2), list.Find(&c));
    EXPECT_EQ(list.FindIndex(4), nullptr);
    list.RemoveAt(pb);
    EXPECT_EQ(Values(list), (std::vector<int>{1, 3, 4}));
    EXPECT_EQ(list.RemoveTail(), &d);
    POSITION pos = list.GetTailPosition();
    EXPECT_EQ(list.GetPrev(pos), &c);
    EXPECT_EQ(list.GetPrev(pos), &a);
    EXPECT_EQ(pos, nullptr);
    CObList other;
    other.AddTail(&list);
    EXPECT_EQ(other.GetCount(), 2);
    EXPECT_TRUE(list.IsKindOf(RUNTIME_CLASS(CObject)));
}

TEST(CObListTest, AddTailThrowsWhenNoNodeCanBeAllocated)
{
    TS_SKIP_ON_WINE("a Windows module keeps its own allocator, out of the program's reach");
    Counted a(1), b(2);
    CObList list(1);
    list.AddTail(&a);
    ASSERT_TRUE(tstest::FailArrayAllocation(true));
    CException *caught = nullptr;
    try {
        list.AddTail(&b);
    } catch (CMemoryException *e) {
        caught = e;
    }
    tstest::FailArrayAllocation(false);
    ASSERT_NE(caught, nullptr);
    caught->Delete(); // the static exception survives this
    EXPECT_EQ(list.GetCount(), 1);
    EXPECT_EQ(list.GetTail(), &a);
    EXPECT_NE(list.AddTail(&b), nullptr);
    EXPECT_EQ(list.GetCount(), 2);
}

TEST(CStringListTest, KeepsOwnCopies)
{
    CStringList list;
    CString text("first");
    list.AddTail(text);
    text = "changed";
    list.AddHead("zero");
    list.AddTail("second");
    EXPECT_EQ(list.GetCount(), 3);
    POSITION pos = list.GetHeadPosition();
    EXPECT_STREQ(list.GetNext(pos), "zero");
    EXPECT_STREQ(list.GetNext(pos), "first");
    EXPECT_STREQ(list.GetNext(pos), "second");
    EXPECT_EQ(pos, nullptr);
    EXPECT_NE(list.Find("first"), nullptr);
    EXPECT_STREQ(list.RemoveHead(), "zero");
    list.RemoveAll();
    EXPECT_TRUE(list.IsEmpty());
    EXPECT_STREQ(list.RemoveHead(), "");
    for (int i = 0; i < 50; ++i)
        list.AddTail(CString('x', i));
    EXPECT_EQ(list.GetTail().GetLength(), 49);
}

} // namespace

// The node-block list machinery that CObList and CStringList share: both
// hold the same six fields and differ only in the element a node carries.
// An element is made (value-initialised) when its node is taken from the
// free chain and destroyed when the node goes back, so CString elements
// live exactly as long as their nodes.
#pragma once

#include <afxcoll.h>

#include <new>
#include <type_traits>

#include "plex.h"

template <class List> struct NodeList {
    using Node = typename List::CNode;
    using Elem = decltype(Node::data);

    static void Init(List &l, int nBlockSize)
    {
        l.m_pNodeHead = l.m_pNodeTail = l.m_pNodeFree = nullptr;
        l.m_nCount = 0;
        l.m_pBlocks = nullptr;
        l.m_nBlockSize = nBlockSize > 0 ? nBlockSize : 1;
    }

    static Node *NewNode(List &l, Node *pPrev, Node *pNext)
    {
        if (!l.m_pNodeFree) {
            CPlex *block = CPlex::Create(l.m_pBlocks, static_cast<UINT>(l.m_nBlockSize), sizeof(Node));
            Node *node = static_cast<Node *>(block->data()) + l.m_nBlockSize - 1;
            for (int i = l.m_nBlockSize - 1; i >= 0; --i, --node) {
                node->pNext = l.m_pNodeFree;
                l.m_pNodeFree = node;
            }
        }
        Node *node = l.m_pNodeFree;
        l.m_pNodeFree = node->pNext;
        node->pPrev = pPrev;
        node->pNext = pNext;
        new (&node->data) Elem();
        ++l.m_nCount;
        return node;
    }

    // The node goes back to the free chain; blocks stay until RemoveAll, so
    // a list that empties and fills again allocates nothing.
    static void FreeNode(List &l, Node *pNode)
    {
        pNode->data.~Elem();
        pNode->pNext = l.m_pNodeFree;
        l.m_pNodeFree = pNode;
        --l.m_nCount;
    }

    static Elem GetHead(const List &l) { return l.m_pNodeHead ? l.m_pNodeHead->data : Elem(); }
    static Elem GetTail(const List &l) { return l.m_pNodeTail ? l.m_pNodeTail->data : Elem(); }

    static Elem RemoveHead(List &l)
    {
        Node *old = l.m_pNodeHead;
        if (!old)
            return Elem();
        Elem ret = old->data;
        l.m_pNodeHead = old->pNext;
        if (l.m_pNodeHead)
            l.m_pNodeHead->pPrev = nullptr;
        else
            l.m_pNodeTail = nullptr;
        FreeNode(l, old);
        return ret;
    }

    static Elem RemoveTail(List &l)
    {
        Node *old = l.m_pNodeTail;
        if (!old)
            return Elem();
        Elem ret = old->data;
        l.m_pNodeTail = old->pPrev;
        if (l.m_pNodeTail)
            l.m_pNodeTail->pNext = nullptr;
        else
            l.m_pNodeHead = nullptr;
        FreeNode(l, old);
        return ret;
    }

    static POSITION AddHead(List &l, const Elem &newElement)
    {
        Node *node = NewNode(l, nullptr, l.m_pNodeHead);
        node->data = newElement;
        if (l.m_pNodeHead)
            l.m_pNodeHead->pPrev = node;
        else
            l.m_pNodeTail = node;
        l.m_pNodeHead = node;
        return reinterpret_cast<POSITION>(node);
    }

    static POSITION AddTail(List &l, const Elem &newElement)
    {
        Node *node = NewNode(l, l.m_pNodeTail, nullptr);
        node->data = newElement;
        if (l.m_pNodeTail)
            l.m_pNodeTail->pNext = node;
        else
            l.m_pNodeHead = node;
        l.m_pNodeTail = node;
        return reinterpret_cast<POSITION>(node);
    }

    // Walks from the tail so the other list's order is kept at the head.
    static void AddHead(List &l, List *pNewList)
    {
        if (!pNewList || pNewList == &l)
            return;
        for (Node *node = pNewList->m_pNodeTail; node; node = node->pPrev)
            AddHead(l, node->data);
    }

    static void AddTail(List &l, List *pNewList)
    {
        if (!pNewList || pNewList == &l)
            return;
        for (Node *node = pNewList->m_pNodeHead; node; node = node->pNext)
            AddTail(l, node->data);
    }

    static void RemoveAll(List &l)
    {
        if constexpr (!std::is_trivially_destructible_v<Elem>)
            for (Node *node = l.m_pNodeHead; node; node = node->pNext)
                node->data.~Elem();
        l.m_nCount = 0;
        l.m_pNodeHead = l.m_pNodeTail = l.m_pNodeFree = nullptr;
        if (l.m_pBlocks)
            l.m_pBlocks->FreeDataChain();
        l.m_pBlocks = nullptr;
    }

    static Node *At(POSITION position) { return reinterpret_cast<Node *>(position); }

    static Elem &GetNext(POSITION &rPosition)
    {
        Node *node = At(rPosition);
        rPosition = reinterpret_cast<POSITION>(node->pNext);
        return node->data;
    }

    static Elem &GetPrev(POSITION &rPosition)
    {
        Node *node = At(rPosition);
        rPosition = reinterpret_cast<POSITION>(node->pPrev);
        return node->data;
    }

    static void RemoveAt(List &l, POSITION position)
    {
        Node *old = At(position);
        if (!old)
            return;
        if (old == l.m_pNodeHead)
            l.m_pNodeHead = old->pNext;
        else
            old->pPrev->pNext = old->pNext;
        if (old == l.m_pNodeTail)
            l.m_pNodeTail = old->pPrev;
        else
            old->pNext->pPrev = old->pPrev;
        FreeNode(l, old);
    }

    template <class Value> static POSITION InsertBefore(List &l, POSITION position, const Value &newElement)
    {
        if (!position)
            return l.AddHead(newElement);
        Node *old = At(position);
        Node *node = NewNode(l, old->pPrev, old);
        node->data = newElement;
        if (old->pPrev)
            old->pPrev->pNext = node;
        else
            l.m_pNodeHead = node;
        old->pPrev = node;
        return reinterpret_cast<POSITION>(node);
    }

    template <class Value> static POSITION InsertAfter(List &l, POSITION position, const Value &newElement)
    {
        if (!position)
            return l.AddTail(newElement);
        Node *old = At(position);
        Node *node = NewNode(l, old, old->pNext);
        node->data = newElement;
        if (old->pNext)
            old->pNext->pPrev = node;
        else
            l.m_pNodeTail = node;
        old->pNext = node;
        return reinterpret_cast<POSITION>(node);
    }

    template <class Value> static POSITION Find(const List &l, const Value &searchValue, POSITION startAfter)
    {
        Node *node = startAfter ? At(startAfter)->pNext : l.m_pNodeHead;
        for (; node; node = node->pNext)
            if (node->data == searchValue)
                return reinterpret_cast<POSITION>(node);
        return nullptr;
    }

    static POSITION FindIndex(const List &l, int nIndex)
    {
        if (nIndex < 0 || nIndex >= l.m_nCount)
            return nullptr;
        Node *node = l.m_pNodeHead;
        while (nIndex--)
            node = node->pNext;
        return reinterpret_cast<POSITION>(node);
    }
};

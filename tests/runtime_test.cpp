#include <gtest/gtest.h>
#include <hybase/hcutil/HCLazyDelete.h>
#include <hybase/hcutil/HCObjVector.h>
#include <hybase/hcutil/HCPtrKeeper.h>
#include <unistd.h>

#include <string>
#include <thread>
#include <vector>

#include "support/vtable_slots.h"
#include "support/watched_realloc.h"

namespace {

struct Worker : HCThread {
    using HCThread::HCThread;
    void* OnThread(void* userdata) override {
        auto* steps = static_cast<std::atomic<int>*>(userdata);  // outlives the worker
        ++*steps;
        usleep(20000);
        ++*steps;
        return userdata;
    }
    std::string Name() const { return std::string(m_szName, sizeof m_szName); }
};

TEST(Thread, IsJoinedOnceAfterEachStartAndByItsDestructorButNotWhenDetached) {
    std::atomic<int> steps{0};
    void *result = nullptr, *again = nullptr;
    {
        Worker worker(nullptr, false, &steps);
        EXPECT_EQ(worker.Name(), std::string(32, '\0'));
        worker.Join(&again);  // not started yet
        EXPECT_NE(worker.StartThread(), nullptr);
        worker.Join(&result);
        EXPECT_EQ(result, &steps);
        worker.Join(&again);
        EXPECT_NE(worker.StartThread(), nullptr);
        while (steps < 3) usleep(1000);
    }
    EXPECT_EQ(steps, 4);
    std::string block = std::string("NetPackage") + '\0' + std::string(40, 'n');
    Worker detached(block.data(), true, &steps);
    EXPECT_EQ(detached.Name(), block.substr(0, 32));
    EXPECT_NE(detached.StartThread(), nullptr);
    detached.Join(&again);
    EXPECT_LT(steps, 6);
    EXPECT_EQ(again, nullptr);
    while (steps < 6) usleep(1000);
}

// The objects that are gone, each a decimal digit, the first one in front.
using Gone = std::atomic<int>;

// Milliseconds until `gone` has grown to `value`; gives up after five seconds.
int64_t MsUntil(const Gone& gone, int value) {
    int64_t start = arch_getSystemStartupMs();
    while (gone < value && arch_getSystemStartupMs() < start + 5000) usleep(2000);
    return arch_getSystemStartupMs() - start;
}

struct Obj : HCObjOfVector {
    Obj(Gone* list, int digit, int delay_sec = 0) : gone(list), id(digit), delay(delay_sec) {}
    ~Obj() override { *gone = *gone * 10 + id; }
    int TryDelayDelete() override { return delay; }
    Gone* gone;
    int id, delay;
};

TEST(ObjVector, KeepsFindsAndDisposesOfItsObjects) {
    Gone gone{0};
    Obj replaced(&gone, 9);
    auto* objects = new HCObjVector;
    HCObjOfVector* one = new Obj(&gone, 1);
    for (HCObjOfVector* obj : {&replaced, static_cast<Obj*>(nullptr)}) objects->Append(obj);
    EXPECT_EQ(objects->Insert(new Obj(&gone, 2), 1), 0);
    EXPECT_EQ(objects->SetAt(3, one), -11);
    EXPECT_EQ(objects->SetAt(0, one), 0);
    EXPECT_EQ(objects->Swap(0, 2), 0);  // now null, 2, 1
    EXPECT_EQ(objects->GetIndex(one, nullptr), 2);
    EXPECT_EQ(objects->GetIndex(&replaced, nullptr), -11);
    for (int index : {0, -1, 3}) EXPECT_EQ(objects->Del(index), -11);
    EXPECT_EQ(objects->Del(1), 0);
    EXPECT_EQ(gone, 2);
    EXPECT_EQ(objects->Append(new Obj(&gone, 3)), 0);
    EXPECT_EQ(objects->GetCnt(), 3);
    EXPECT_EQ(objects->Clear(), 0);
    EXPECT_EQ(gone, 213);
    objects->Append(new Obj(&gone, 4));
    delete objects;
    EXPECT_EQ(gone, 2134);
}

// The last test that may use the collector: it ends it.
TEST(LazyDelete, DeletesAtThePollThatEndsTheDelayAndOwnsNothingItRefused) {
    Gone gone{0};
    Obj refused(&gone, 9, 1001), endless(&gone, 8);
    HCObjVector objects;
    for (Obj* obj : {&refused, new Obj(&gone, 1, 1)}) objects.Append(obj);
    EXPECT_EQ(objects.Clear(), 0);
    EXPECT_EQ(gone, 0);
    EXPECT_LT(MsUntil(gone, 1), 1400);  // the next poll is half a second off now

    HCLazyDelete* collector = HCLazyDelete::instance();
    for (int delay : {0, -1, 1001}) EXPECT_EQ(collector->AddItem(&refused, delay), -3);
    EXPECT_EQ(collector->AddItem(&endless, 1000), 0);
    EXPECT_EQ(collector->AddItem(new Obj(&gone, 4), 2), 0);
    for (int id : {3, 2}) EXPECT_EQ(collector->AddItem(new Obj(&gone, id), 1), 0);
    for (int i = 4; i < 64; i++) EXPECT_EQ(collector->AddItem(nullptr, 1), 0);
    realloc_refuses = true;
    EXPECT_EQ(collector->AddItem(&refused, 1), -4);
    realloc_refuses = false;
    EXPECT_NEAR(MsUntil(gone, 123), 1000, 400);
    EXPECT_NEAR(MsUntil(gone, 1234), 1000, 400);
    delete collector;
    EXPECT_EQ(gone, 1234);
}

TEST(PtrKeeper, GivesHandlesInOrderAndLocksTheEntryLookedUp) {
    HCPtrKeeper keeper;
    for (int i = 1; i <= 3; i++) EXPECT_EQ(keeper.Add(&keeper, 40 + i, 1LL << (40 + i)), i);
    keeper.Delete(2);
    EXPECT_EQ(keeper.Add(nullptr, 0, 0), 4);
    HCPtrKeeper::Value_t* value = keeper.GetAndLock(3);
    EXPECT_TRUE(value->ptr == &keeper && value->type == 43 && value->data == 1LL << 43);
    std::atomic<bool> deleted{false};
    std::thread other([&] { keeper.Delete(3), deleted = true; });
    usleep(50000);
    EXPECT_FALSE(deleted);
    keeper.Unlock(3);
    other.join();
    value = keeper.GetAndLock(3);  // an empty entry by now
    EXPECT_TRUE(value->ptr == nullptr && value->type == 0 && value->data == 0);
    keeper.Unlock(3);
}

TEST(RuntimeObjects, HaveTheirVirtualFunctionsInOrderBehindTheDestructors) {
    auto slots = [](auto... methods) { return std::vector<int>{VtableSlot(methods)...}; };
    using V = HCObjVector;
    EXPECT_EQ(slots(&V::Clear, &V::Append, &V::Insert, &V::Del, &V::SetAt, &V::Swap, &V::GetCnt,
                    &V::At, &V::GetIndex, &HCThread::OnThread, &HCObjOfVector::TryDelayDelete,
                    &HCObjOfVector::IsEqual),
              (std::vector<int>{2, 3, 4, 5, 6, 7, 8, 9, 10, 2, 2, 3}));
}

}  // namespace

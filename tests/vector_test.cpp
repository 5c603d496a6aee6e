#include <gtest/gtest.h>
#include <hybase/harray.h>
#include <hybase/hvector.h>

#include <string>
#include <vector>

#include "support/watched_realloc.h"

namespace {

using Numbers = std::vector<int32_t>;

struct Vector {
    Vector(uint32_t size, int32_t capacity, const Numbers& numbers = {})
        : handle(HVector_Create(size, capacity)) {
        for (int32_t number : numbers) EXPECT_EQ(HVector_Append(handle, &number), 0);
    }
    explicit Vector(HVector* owned) : handle(owned) {}
    ~Vector() { EXPECT_EQ(HVector_Destroy(handle), 0); }
    operator HVector*() const { return handle; }
    HVector* const handle;
};

template <class Item = int32_t>
std::vector<Item> Contents(const HVector* vector) {
    auto* first = static_cast<Item*>(HVector_At(vector, 0));
    return {first, first + HVector_Cnt(vector) * HVector_GetItemSize(vector) / sizeof(Item)};
}

TEST(Vector, KeepsEveryItemInPlaceWhateverItsSize) {
    for (uint32_t size : {1, 4, 8, 16, 24, 255, 256, 300}) {
        Vector vector(size, 1);
        std::string model;
        for (int step = 0; step < 250; step++) {
            std::string item(size, 'x');
            item[step % 2 ? 0 : size - 1] = static_cast<char>(step);
            int32_t count = HVector_Cnt(vector), at = rand() % (count + 1);
            int32_t other = rand() % (count + 1), result = HVector_Insert(vector, item.data(), at);
            model.insert(at * size, item);
            ASSERT_EQ(HVector_Find(vector, item.data()), at);
            if (step % 4 < 2) {
                result += HVector_SetAt(vector, other, item.data());
                model.replace(other * size, size, item);
            } else if (step % 4 == 2) {
                result += HVector_Swap(vector, at, other);
                std::swap_ranges(&model[at * size], &model[at * size + size], &model[other * size]);
            } else {
                result += HVector_Del(vector, other);
                model.erase(other * size, size);
            }
            ASSERT_EQ(std::string(static_cast<char*>(HVector_At(vector, 0)), model.size()), model);
            ASSERT_EQ(result, 0);
        }
    }
}

TEST(Vector, RefusesIndexesOutOfRangeAndNull) {
    Vector vector(4, 4, {10, 20});
    int32_t item = 99;
    for (int32_t index : {-1, 3}) EXPECT_EQ(HVector_Insert(vector, &item, index), -3) << index;
    for (int32_t index : {-1, 2, INT32_MIN}) {
        const Numbers results = {HVector_Del(vector, index), HVector_SetAt(vector, index, &item),
                                 HVector_Swap(vector, 0, index), HVector_Swap(vector, index, 0)};
        EXPECT_EQ(results, (Numbers{-3, -11, -3, -3})) << index;
    }
    EXPECT_EQ(Contents(vector), (Numbers{10, 20}));
    EXPECT_EQ(HVector_Find(vector, &item), -1);
    for (int result : {HVector_Destroy(nullptr), HVector_Clear(nullptr), HVector_Del(nullptr, 0),
                       HVector_Append(nullptr, &item), HVector_Insert(nullptr, &item, 0),
                       HVector_SetAt(nullptr, 0, &item), HVector_Swap(nullptr, 0, 0),
                       HVector_Find(nullptr, &item), HVector_Append(vector, nullptr)})
        EXPECT_EQ(result, -6);
    EXPECT_EQ(HVector_At(nullptr, 0), HVector_Dup(nullptr, nullptr));
    EXPECT_EQ(HVector_Cnt(nullptr), 0u);
    EXPECT_EQ(HVector_GetItemSize(nullptr), 0u);
}

TEST(Vector, DoublesAlsoForItsOwnItemsAndStaysWholeWhenItCannot) {
    realloc_bytes = 0;
    for (int32_t asked : {0, -5}) Vector(4, asked, Numbers(8, 7));
    EXPECT_EQ(realloc_bytes, 0u);
    Vector vector(4, 1, {1, 2});
    realloc_refuses = true;
    EXPECT_EQ(HVector_Append(vector, HVector_At(vector, 0)), -4);
    EXPECT_EQ(HVector_Insert(vector, HVector_At(vector, 1), 0), -4);
    realloc_refuses = false;
    Vector copy(HVector_Dup(vector, nullptr));  // reads no more than there is
    EXPECT_EQ(HVector_Insert(vector, HVector_At(vector, 1), 0), 0);
    EXPECT_EQ(realloc_bytes, 16u);  // doubled once, however often it failed
    EXPECT_EQ(HVector_Insert(vector, HVector_At(vector, 0), 1), 0);
    EXPECT_EQ(HVector_Append(vector, HVector_At(vector, 2)), 0);
    EXPECT_EQ(Contents(vector), (Numbers{2, 2, 1, 2, 1}));
    EXPECT_EQ(HVector_Find(vector, HVector_At(vector, 4)), 2);  // the first of equal ones
    EXPECT_EQ(Contents(copy), (Numbers{1, 2}));
}

TEST(Vector, IsDuplicatedWithItsCapacityOrIntoItemsOfAnotherSize) {
    Vector source(4, 3, {2, 3}), narrow(2, 1), wide(8, 1), copy(HVector_Dup(source, nullptr));
    realloc_bytes = 0;
    EXPECT_EQ(HVector_Append(copy, HVector_At(copy, 0)), 0);
    EXPECT_EQ(realloc_bytes, 0u);
    EXPECT_EQ(HVector_Dup(source, narrow), narrow.handle);
    EXPECT_EQ(Contents<int16_t>(narrow), (std::vector<int16_t>{2, 3}));
    // The second time replaces what the first one left.
    for (int i = 0; i < 2; i++) EXPECT_EQ(HVector_Dup(copy, wide), wide.handle);
    EXPECT_EQ(Contents<int64_t>(wide), (std::vector<int64_t>{0x300000002, 0x200000003, 2}));
    EXPECT_EQ(HVector_Cnt(HVector_Dup(copy, copy)), 0);
}

TEST(Vector, SurvivesBlocksOfNoBytesAndOfMoreThanThereAre) {
    Vector empty(0, 1, {5, 6, 7});
    EXPECT_EQ(HVector_Find(empty, "x"), 0);
    testing::internal::CaptureStdout();
    EXPECT_EQ(HVector_Create(0x40000000, INT32_MAX), nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "failed malloc memory: -1073741824 in HVector_Create\n");
}

TEST(Array, ZeroesTheSlotThatBecomesFreeAndChecksIndexes) {
    int32_t array[] = {5, 10, 20}, count = 3;
    const Numbers results = {
        HArray_Remove(array, &count, 4, 0),  HArray_Remove(array, &count, 4, 2),
        HArray_Remove(array, &count, 4, -1), HArray_Insert(array, &count, 4, 3, array),
        HArray_Exchange(array, 4, -1, 0),    HArray_Insert(array, &count, 4, -1, array)};
    EXPECT_EQ(results, (Numbers{0, -1, -1, -1, 0, -1}));
    EXPECT_EQ(Numbers(array, array + 3), (Numbers{10, 20, 0}));
    EXPECT_EQ(count, 2);
}

}  // namespace

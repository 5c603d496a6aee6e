// Appending items of 16 bytes, and searching 10,000 of them for one that is not there.
#include <glib.h>
#include <hybase/hvector.h>
#include <malloc.h>
#include <stdint.h>
#include <string.h>

#include <algorithm>
#include <vector>

#include "compare.h"

namespace {

constexpr int32_t kItems = 10000;
constexpr char kAppend[] = "vector: append 10,000 items of 16 bytes";
constexpr char kFind[] = "vector: find in 10,000 items of 16 bytes";

struct Item {
    uint64_t id;
    uint64_t value;
    bool operator==(const Item& other) const { return id == other.id && value == other.value; }
};

// As far as the first word there are many like it.
Item MakeItem(int32_t i) { return {static_cast<uint64_t>(i % 100), static_cast<uint64_t>(i)}; }
constexpr Item kAbsent = {50, UINT64_MAX};

class Hybase {
  public:
    ~Hybase() { HVector_Destroy(items_); }
    void Append(const Item& item) { HVector_Append(items_, &item); }
    bool Has(const Item& item) const { return HVector_Find(items_, &item) >= 0; }
    size_t Size() const { return static_cast<size_t>(HVector_Cnt(items_)); }

  private:
    HVector* items_ = HVector_Create(sizeof(Item), 0);
};

// GArray has no search of its own: its users compare the bytes.
class Garray {
  public:
    ~Garray() { g_array_free(items_, TRUE); }
    void Append(const Item& item) { g_array_append_vals(items_, &item, 1); }
    bool Has(const Item& item) const {
        const size_t size = g_array_get_element_size(items_);
        const char* at = items_->data;
        for (guint i = 0; i < items_->len; ++i, at += size)
            if (memcmp(at, &item, size) == 0) return true;
        return false;
    }
    size_t Size() const { return items_->len; }

  private:
    GArray* items_ = g_array_new(FALSE, FALSE, sizeof(Item));
};

// Knows the type when it is compiled; the other two learn the size of an item when they run.
class StdVector {
  public:
    void Append(const Item& item) { items_.push_back(item); }
    bool Has(const Item& item) const {
        return std::find(items_.begin(), items_.end(), item) != items_.end();
    }
    size_t Size() const { return items_.size(); }

  private:
    std::vector<Item> items_;
};

template <class Side>
void Append(benchmark::State& state) {
    for (auto _ : state) {
        Side side;
        for (int32_t i = 0; i < kItems; ++i) side.Append(MakeItem(i));
        Require(state, side.Size() == kItems, "wrong count");
    }
}

template <class Side>
void Find(benchmark::State& state) {
    Side side;
    for (int32_t i = 0; i < kItems; ++i) side.Append(MakeItem(i));
    Require(state, side.Has(MakeItem(kItems - 1)), "item not found");
    Item absent = kAbsent;
    for (auto _ : state) {
        benchmark::DoNotOptimize(absent);
        bool found = side.Has(absent);
        benchmark::DoNotOptimize(found);
        benchmark::ClobberMemory();
    }
    Require(state, !side.Has(absent), "found what is not there");
}

template <class Side>
void Add(const char* who, double append_goal, double find_goal) {
    Compare(kAppend, who, Append<Side>, append_goal)->Unit(benchmark::kMicrosecond);
    Compare(kFind, who, Find<Side>, find_goal)->Unit(benchmark::kMicrosecond);
}

}  // namespace

int main(int argc, char** argv) {
    // Freed blocks stay with the process: otherwise getting their pages anew is most of the time.
    mallopt(M_TRIM_THRESHOLD, 64 << 20);
    mallopt(M_MMAP_THRESHOLD, 32 << 20);
    Add<Hybase>(kOurs, 0, 0);
    Add<Garray>("GArray", 0.5, 0.5);
    Add<StdVector>("std::vector of a known type", 0, 2);
    return RunComparisons(argc, argv);
}

#include "hybase/hcutil/HCObjVector.h"

#include <stdint.h>

namespace {

constexpr int kNoSuchObject = -11;
constexpr int32_t kInitialCapacity = 12;

#if UINTPTR_MAX == UINT32_MAX
static_assert(sizeof(HCObjOfVector) == 4 && sizeof(HCObjVector) == 8);
#endif

}  // namespace

HCObjOfVector::~HCObjOfVector() = default;

int HCObjOfVector::TryDelayDelete() { return 0; }

bool HCObjOfVector::IsEqual(void* key, void*) { return key == this; }

HCObjVector::HCObjVector() : m_pVector(HVector_Create(sizeof(void*), kInitialCapacity)) {}

HCObjVector::~HCObjVector() {
    HCObjVector::Clear();
    HVector_Destroy(m_pVector);
}

int HCObjVector::Clear() {
    for (int i = 0; i < HVector_Cnt(m_pVector); i++)
        if (HCObjOfVector* obj = HCObjVector::At(i)) Dispose(obj);
    return HVector_Clear(m_pVector);
}

int HCObjVector::Append(HCObjOfVector* obj) { return HVector_Append(m_pVector, &obj); }

int HCObjVector::Insert(HCObjOfVector* obj, int index) {
    return HVector_Insert(m_pVector, &obj, index);
}

int HCObjVector::Del(int index) {
    HCObjOfVector* obj = At(index);
    if (obj == nullptr) return kNoSuchObject;
    Dispose(obj);
    HVector_Del(m_pVector, index);
    return 0;
}

HCObjOfVector* HCObjVector::Unlink(int index) {
    HCObjOfVector* obj = At(index);
    HVector_Del(m_pVector, index);
    return obj;
}

void HCObjVector::Dispose(HCObjOfVector* obj) {
    int delay_sec = obj->TryDelayDelete();
    if (delay_sec == 0) {
        delete obj;
        return;
    }
    // An object whose delay is refused is leaked on purpose: others may still be using it.
    HCLazyDelete* collector = HCLazyDelete::instance();
    if (collector != nullptr) collector->AddItem(obj, delay_sec);
}

int HCObjVector::SetAt(int index, HCObjOfVector* obj) {
    return HVector_SetAt(m_pVector, index, &obj);
}

int HCObjVector::Swap(int i, int j) { return HVector_Swap(m_pVector, i, j); }

int HCObjVector::GetCnt() { return HVector_Cnt(m_pVector); }

HCObjOfVector* HCObjVector::At(int index) {
    void* element = HVector_At(m_pVector, index);
    return element != nullptr ? *static_cast<HCObjOfVector**>(element) : nullptr;
}

int HCObjVector::GetIndex(void* key, void* extra) {
    for (int i = 0; i < GetCnt(); i++) {
        HCObjOfVector* obj = At(i);
        if (obj != nullptr && obj->IsEqual(key, extra)) return i;
    }
    return kNoSuchObject;
}

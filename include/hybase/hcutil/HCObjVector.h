/// @file
/// @ingroup runtime
/// A vector that owns polymorphic objects; each decides how it is disposed of.
#ifndef HYBASE_HCUTIL_HCOBJVECTOR_H
#define HYBASE_HCUTIL_HCOBJVECTOR_H

#include <hybase/export.h>
#include <hybase/hcutil/HCLazyDelete.h>
#include <hybase/hvector.h>

/// @ingroup runtime
/// What an HCObjVector holds.
class HYBASE_API HCObjOfVector : public HCLazyDelItem {
  public:
    ~HCObjOfVector() override;  ///< see HCLazyDelItem where the deletion is late

    /// Asked when the object leaves the vector: 0 (the default) deletes it at once, 1..1000 hands
    /// it to HCLazyDelete for that many seconds. Any other value is refused there and the object
    /// leaks.
    virtual int TryDelayDelete();

    /// Whether this object is the one looked for. The default compares `key` with the object's own
    /// address, as an HCObjOfVector*, and ignores `extra`.
    virtual bool IsEqual(void* key, void* extra);
};

/// A vector that owns polymorphic objects; each decides how it is disposed of.
///
/// Results are those of the HVector underneath: 0, -3 index out of range, -4 no memory, -6 no
/// vector; those of SetAt(), Del() and GetIndex() are -11 for what is not there.
///
/// @par Threads
/// Nothing locks, the owner serialises changes. Readers on other threads are protected only by
/// objects that defer their deletion.
///
/// @ingroup runtime
class HYBASE_API HCObjVector {
  public:
    HCObjVector();  ///< no objects

    /// Disposes of all objects.
    virtual ~HCObjVector();
    HCObjVector(const HCObjVector&) = delete;  ///< not to be copied
    HCObjVector& operator=(const HCObjVector&) = delete;

    /// Disposes of all objects, first to last, and empties the vector. 0 or -6.
    virtual int Clear();

    /// The vector owns the object from now on, unless the result is negative. Null may be stored.
    virtual int Append(HCObjOfVector* obj);

    /// As Append, at `index`, 0..GetCnt(); what stands there and behind it moves up by one.
    virtual int Insert(HCObjOfVector* obj, int index);

    /// Disposes of the object at `index` and closes the gap. 0; -11 when there is none, and a null
    /// element counts as none: only Clear takes it out.
    virtual int Del(int index);

    /// Replaces the element. The old object is not disposed of; it becomes the caller's.
    /// 0, -11 index out of range, -6.
    virtual int SetAt(int index, HCObjOfVector* obj);

    /// Exchanges two elements. 0, -3, -6.
    virtual int Swap(int i, int j);

    /// Number of elements.
    virtual int GetCnt();

    /// The object, still the vector's; null for an index out of range.
    virtual HCObjOfVector* At(int index);

    /// The first index whose object answers IsEqual(key, extra) with true, or -11.
    virtual int GetIndex(void* key, void* extra);

  protected:
    /// The two halves of Del, for owners that must not hold their lock while an object goes away.

    /// Takes the element at `index` out and closes the gap without disposing of the object, which
    /// becomes the caller's. Null for a null element and for an index out of range.
    HCObjOfVector* Unlink(int index);

    /// Deletes the object, at once or late, as its TryDelayDelete() wants it.
    static void Dispose(HCObjOfVector* obj);

  private:
    HVector* m_pVector;
};

#endif

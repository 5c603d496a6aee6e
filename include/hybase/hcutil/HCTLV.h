/// @file
/// @ingroup tlv
/// One TLV message with an owner: values put in and read back by their type number.
#ifndef HYBASE_HCUTIL_HCTLV_H
#define HYBASE_HCUTIL_HCTLV_H

#include <hybase/export.h>
#include <hyplatform/utltlv.h>

#include <string>

/// One TLV message with an owner: values put in and read back by their type number.
///
///     HCTLV status("status");
///     status.AddUInt32Value(1, 42);
///     SendTail(status.GetTLVBuffer(), status.GetTLVBytes());
///
/// A thin wrapper around the codec of `<hyplatform/utltlv.h>`, which tells of kinds, limits and
/// error codes. Results are the codec's, 0 for success, unless said otherwise; nothing is logged,
/// nothing throws. Pointers handed out belong to the object and live until its next Add, Del or
/// Parse.
///
/// @par Threads
/// None of its own; one thread an object.
///
/// @ingroup tlv
class HYBASE_API HCTLV {
  public:
    /// An empty message. When memory is short the object holds no handle, as after a failed parse.
    explicit HCTLV(const char* headType);
    ~HCTLV();                      ///< frees the message and all that was handed out
    HCTLV(const HCTLV&) = delete;  ///< not to be copied
    HCTLV& operator=(const HCTLV&) = delete;

    /// Replaces the message by the one that `data[0..length-1]` holds; the data is copied and may
    /// be this object's own buffer. Returns 0, or -1 when it is malformed: the object then holds no
    /// handle, and every operation but this one fails.
    int ParseToTLV(const unsigned char* data, int length);

    /// The codec's handle, still owned by the object; null when there is none.
    utltlv_t GetCHdl() const { return m_hTlv; }

    /// The encoded message; null without a handle and when memory is short: look at it before its
    /// count.
    unsigned char* GetTLVBuffer() const;

    /// Bytes of the encoded message; 0 without a handle.
    int GetTLVBytes() const;

    /// The head type of the message; null without a handle.
    const char* GetHeadType();

    /// @name Values in
    /// Each adds a value or replaces the one of the same type. The data is copied.
    /// @{

    /// Adds an unsigned integer of 1 byte.
    int AddUInt8Value(int type, unsigned char value);

    /// Adds an unsigned integer of 2 bytes.
    int AddUInt16Value(int type, unsigned short value);

    /// Adds an unsigned integer of 4 bytes.
    int AddUInt32Value(int type, unsigned int value);

    /// Adds an unsigned integer of 8 bytes.
    int AddUInt64Value(int type, unsigned long long value);

    /// Adds a float.
    int AddFloatValue(int type, float value);

    /// Adds a double.
    int AddDoubleValue(int type, double value);

    /// Adds a text, stored with its terminator.
    int AddStringValue(int type, const char* text);

    /// Adds a text, up to its first zero byte.
    int AddStringValue(int type, const std::string& text);

    /// Adds bytes; `length` may be 0, and `data` null then.
    int AddBytesValue(int type, const unsigned char* data, int length);

    /// Adds a size.
    int AddSizeValue(int type, const TLVSize_t* size);

    /// Adds a rectangle.
    int AddRectValue(int type, const TLVRect_t* rect);

    /// Adds `count` polygons; `count` may be 0.
    int AddRuleAreasValue(int type, const TLVRuleArea_t* areas, unsigned char count);

    /// Adds `count` objects; `count` may be 0.
    int AddObjAreasValue(int type, const TLVObjArea_t* areas, unsigned char count);

    /// @}

    /// @name Values out
    /// UTLTLV_ERR_ABSENT when there is no value of the type, UTLTLV_ERR_KIND when it has another
    /// kind; the output is then unchanged.
    /// @{

    /// Gets an unsigned integer of 1 byte.
    int GetUInt8Value(int type, unsigned char& value) const;

    /// Gets an unsigned integer of 2 bytes.
    int GetUInt16Value(int type, unsigned short& value) const;

    /// Gets an unsigned integer of 4 bytes.
    int GetUInt32Value(int type, unsigned int& value) const;

    /// Gets an unsigned integer of 8 bytes.
    int GetUInt64Value(int type, unsigned long long& value) const;

    /// Gets a float.
    int GetFloatValue(int type, float& value) const;

    /// Gets a double.
    int GetDoubleValue(int type, double& value) const;

    /// The text of a string, or of bytes up to the first zero byte. Returns 0, or -1 when there is
    /// no such value, it is empty bytes, or memory is short; `out` is then unchanged.
    int GetStringValue(int type, std::string& out) const;

    /// Copies bytes, or a string with its terminator. `*length`: the room in `buf` before, the
    /// bytes copied after.
    int GetBytesValue(int type, unsigned char* buf, int* length) const;

    /// Copies a value of exactly `length` bytes, at least 1. Returns 0, or -1 when there is no such
    /// value: one of another length is refused, not cut.
    int GetBytesValue(int type, unsigned char* buf, int length) const;

    /// Where the value lies in the message: no copy.
    int GetBytesValuePtr(int type, unsigned char** data, int& length) const;

    /// Gets a size.
    int GetSizeValue(int type, TLVSize_t* size);

    /// Gets a rectangle.
    int GetRectValue(int type, TLVRect_t* rect);

    /// Gets all polygons of the value; `*areas` lies in the message.
    int GetRuleAreasValue(int type, TLVRuleArea_t** areas, int* count);

    /// Gets all objects of the value; `*areas` lies in the message.
    int GetObjAreasValue(int type, TLVObjArea_t** areas, int* count);

    /// @}

    /// Removes the value. UTLTLV_ERR_ABSENT when there is none.
    int DelType(int type);

  private:
    utltlv_t m_hTlv;  // null after a failed parse
};

#endif

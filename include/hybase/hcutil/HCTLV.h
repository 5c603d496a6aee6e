// HCTLV: one TLV message with an owner: values put in and read back by their type number.
//
//     HCTLV status("status");
//     status.AddUInt32Value(1, 42);
//     SendTail(status.GetTLVBuffer(), status.GetTLVBytes());
//
// A thin wrapper around the codec of <hyplatform/utltlv.h>, which tells of kinds, limits and error
// codes. Results are the codec's, 0 for success, unless said otherwise; nothing is logged, nothing
// throws. Pointers handed out belong to the object and live until its next Add, Del or Parse.
//
// Threads: none of its own; one thread an object.
#ifndef HYBASE_HCUTIL_HCTLV_H
#define HYBASE_HCUTIL_HCTLV_H

#include <hybase/export.h>
#include <hyplatform/utltlv.h>

#include <string>

class HYBASE_API HCTLV {
  public:
    // An empty message. When memory is short the object holds no handle, as after a failed parse.
    explicit HCTLV(const char* headType);
    ~HCTLV();
    HCTLV(const HCTLV&) = delete;
    HCTLV& operator=(const HCTLV&) = delete;

    // Replaces the message by the one that data[0..length-1] holds; the data is copied and may be
    // this object's own buffer. Returns 0, or -1 when it is malformed: the object then holds no
    // handle, and every operation but this one fails.
    int ParseToTLV(const unsigned char* data, int length);

    // The codec's handle, still owned by the object; null when there is none.
    utltlv_t GetCHdl() const { return m_hTlv; }

    // The encoded message and its count of bytes; null and 0 without a handle. The
    // buffer is null as well when memory is short: look at it before its count.
    unsigned char* GetTLVBuffer() const;
    int GetTLVBytes() const;

    // Null without a handle.
    const char* GetHeadType();

    // Each adds a value or replaces the one of the same type.
    int AddUInt8Value(int type, unsigned char value);
    int AddUInt16Value(int type, unsigned short value);
    int AddUInt32Value(int type, unsigned int value);
    int AddUInt64Value(int type, unsigned long long value);
    int AddFloatValue(int type, float value);
    int AddDoubleValue(int type, double value);
    int AddStringValue(int type, const char* text);
    int AddStringValue(int type, const std::string& text);  // up to its first zero byte
    int AddBytesValue(int type, const unsigned char* data, int length);
    int AddSizeValue(int type, const TLVSize_t* size);
    int AddRectValue(int type, const TLVRect_t* rect);
    int AddRuleAreasValue(int type, const TLVRuleArea_t* areas, unsigned char count);
    int AddObjAreasValue(int type, const TLVObjArea_t* areas, unsigned char count);

    int GetUInt8Value(int type, unsigned char& value) const;
    int GetUInt16Value(int type, unsigned short& value) const;
    int GetUInt32Value(int type, unsigned int& value) const;
    int GetUInt64Value(int type, unsigned long long& value) const;
    int GetFloatValue(int type, float& value) const;
    int GetDoubleValue(int type, double& value) const;

    // The text of a string, or of bytes up to the first zero byte. Returns 0, or -1 when there is
    // no such value, it is empty bytes, or memory is short; `out` is then unchanged.
    int GetStringValue(int type, std::string& out) const;

    // *length: the room in `buf` before, the bytes copied after.
    int GetBytesValue(int type, unsigned char* buf, int* length) const;

    // Copies a value of exactly `length` bytes, at least 1. Returns 0, or -1 when there is no such
    // value: one of another length is refused, not cut.
    int GetBytesValue(int type, unsigned char* buf, int length) const;

    // Where the value lies in the message: no copy.
    int GetBytesValuePtr(int type, unsigned char** data, int& length) const;

    int GetSizeValue(int type, TLVSize_t* size);
    int GetRectValue(int type, TLVRect_t* rect);
    int GetRuleAreasValue(int type, TLVRuleArea_t** areas, int* count);
    int GetObjAreasValue(int type, TLVObjArea_t** areas, int* count);

    // Removes the value.
    int DelType(int type);

  private:
    utltlv_t m_hTlv;  // null after a failed parse
};

#endif

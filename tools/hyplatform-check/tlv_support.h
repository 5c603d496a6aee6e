// What the checks of the TLV codec share: messages written out byte by byte, and owned handles.
#ifndef HYPLATFORM_CHECK_TLV_SUPPORT_H
#define HYPLATFORM_CHECK_TLV_SUPPORT_H

#include <initializer_list>
#include <string>
#include <vector>

#include "check.h"
#include "platform.h"

using Bytes = std::vector<unsigned char>;

// One entry of a message: type, kind, length, value.
Bytes Entry(int type, int kind, const Bytes& value);

// A whole message: head type, count, entries.
Bytes Whole(const char* head_type, std::initializer_list<Bytes> entries);

// The message of docs/formats.md: a value of every kind, whose number is its type.
Bytes Sample();
constexpr int kKinds = 12;
constexpr char kSampleText[] = "up";
constexpr TLVSize_t kSampleSize = {640, -480};
constexpr TLVRect_t kSampleRect = {16, -1, 320, 240};
constexpr TLVRuleArea_t kSampleRule = {3, 1, {{5, 6}}};
constexpr TLVObjArea_t kSampleObject = {7, 1, 95, {16, -1, 320, 240}};
Bytes SampleValue(int kind);

// Owns a handle; a null one fails the check.
class Message {
  public:
    explicit Message(const char* head_type);
    explicit Message(const Bytes& message);
    ~Message();
    Message(const Message&) = delete;
    Message& operator=(const Message&) = delete;
    operator utltlv_t() const { return m_tlv; }
    Bytes Encoded() const;

  private:
    utltlv_t m_tlv;
};

// Hexadecimal, the first bytes of long ones.
std::string Hex(const Bytes& bytes);
void ExpectMessage(const Message& message, const Bytes& wanted, const char* what);
void ExpectResult(int got, int wanted, const char* what);

#endif

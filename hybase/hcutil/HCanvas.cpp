#include "hybase/hcutil/HCanvas.h"

#include <limits.h>
#include <string.h>

#include <new>

#if UINTPTR_MAX == UINT32_MAX
static_assert(sizeof(HCanvas) == 68, "layout on the device");
#endif

namespace {

constexpr int kColorBit = 32;
constexpr int kFreed = -1;  // the size of a buffer that Destroy has freed

}  // namespace

HCanvas::HCanvas()
    : m_pExternal(nullptr),
      m_winsize{},
      m_pUserdata(nullptr),
      m_rect{},
      m_nStride(0),
      m_pBuffer(nullptr),
      m_nBufferSize(0),
      m_nColorBit(kColorBit),
      m_padding{} {}

HCanvas::~HCanvas() = default;

int HCanvas::Create(const HRect_t& rect, const HArea_t& padding, void* buffer, HSize_t* winsize,
                    void* userdata) {
    m_rect = rect;
    m_padding = padding;
    m_winsize = winsize != nullptr ? *winsize : HSize_t{};
    m_pExternal = buffer;
    m_pUserdata = userdata;
    m_nColorBit = kColorBit;
    m_nStride = 0;
    m_pBuffer = nullptr;
    m_nBufferSize = 0;

    const int64_t stride = int64_t{rect.w} * (kColorBit / 8);
    if (stride < 0 || stride > INT_MAX || rect.h < 0) throw std::bad_alloc();
    const int64_t size = stride * rect.h;
    if (size > INT_MAX) throw std::bad_alloc();

    m_pBuffer = new unsigned char[size];
    m_nStride = static_cast<int>(stride);
    m_nBufferSize = static_cast<int>(size);
    return 0;
}

int HCanvas::Destroy() {
    // The pointer is kept, as derived classes know it; the size tells that it is not to be
    // followed.
    if (m_pBuffer == nullptr || m_nBufferSize == kFreed) return 0;
    m_nBufferSize = kFreed;
    delete[] m_pBuffer;
    return 0;
}

int HCanvas::Clear() {
    if (m_pBuffer != nullptr && m_nBufferSize > 0) memset(m_pBuffer, 0, m_nBufferSize);
    return 0;
}

int HCanvas::Update() { return 0; }

unsigned int HCanvas::ConvertColor(unsigned int color) { return color; }

// The records are handed out to be written as well, whatever the canvas is to the caller.
HRect_t* HCanvas::Rect() const { return const_cast<HRect_t*>(&m_rect); }

HSize_t* HCanvas::Winsize() const { return const_cast<HSize_t*>(&m_winsize); }

HArea_t* HCanvas::Padding() const { return const_cast<HArea_t*>(&m_padding); }

int HCanvas::Stride() const { return m_nStride; }

unsigned char* HCanvas::Buffer() const { return m_pBuffer; }

int HCanvas::BufferSize() const { return m_nBufferSize; }

int HCanvas::ColorBit() const { return m_nColorBit; }

void* HCanvas::Userdata() const { return m_pUserdata; }

// HCanvas: a buffer of pixels in memory that HCPainter draws into, and the geometry records of the
// drawing classes.
//
// The class itself keeps 32-bit pixels, row after row from the top, each in the byte order of the
// machine. What the bits of a pixel mean is up to the colours it is given: 0xFF000000 is opaque
// black for those who think of ARGB. A class for a real display derives from it and overrides
// Update, which pushes the pixels out, and ConvertColor, which maps a colour to the format of the
// display (and sets m_nColorBit and the sizes in its Create when that has not 32 bits).
//
//     HSize_t screen = {1920, 1080};
//     HCanvas canvas;
//     canvas.Create({0, 0, 640, 480}, {8, 8, 8, 8}, nullptr, &screen, nullptr);
//     canvas.Clear();
//     ... draw with an HCPainter ...
//     canvas.Update();
//     canvas.Destroy();
//
// Failures: none is reported, every operation returns 0; only Create may throw, std::bad_alloc.
// Threads: a canvas is used by one thread at a time.
#ifndef HYBASE_HCUTIL_HCANVAS_H
#define HYBASE_HCUTIL_HCANVAS_H

#include <hybase/export.h>
#include <stdint.h>

struct HPoint_t {
    int32_t x;
    int32_t y;
};

struct HRect_t {
    int32_t x;
    int32_t y;
    int32_t w;  // width, pixels
    int32_t h;  // height, pixels
};

// Margins, pixels.
struct HArea_t {
    int32_t left;
    int32_t top;
    int32_t right;
    int32_t bottom;
};

struct HSize_t {
    int32_t w;
    int32_t h;
};

class HYBASE_API HCanvas {
  public:
    HCanvas();

    // Frees nothing: the owner calls Destroy first.
    virtual ~HCanvas();

    HCanvas(const HCanvas&) = delete;
    HCanvas& operator=(const HCanvas&) = delete;

    // Gives the canvas its pixels; they are not cleared.
    // `rect`: position and size. `padding`: the painter keeps text and icons off the left and the
    // top by it, and adds its height between lines of text. `buffer`: memory of the caller that a
    // derived class may want to know; nothing here draws into it. `winsize`: size of the window or
    // screen around the canvas, copied (a null pointer leaves it 0 x 0). `userdata`: handed back by
    // Userdata().
    // Returns 0. Throws std::bad_alloc when there is no memory for the pixels, as for any canvas of
    // 2 GiB or more or of a negative size; the canvas is without pixels then. One that has pixels
    // is destroyed before it is created anew.
    virtual int Create(const HRect_t& rect, const HArea_t& padding, void* buffer, HSize_t* winsize,
                       void* userdata);

    // Frees the pixels; what Buffer() returns is left as it was and must not be followed any more.
    // Returns 0.
    virtual int Destroy();

    // Sets every byte of the pixels to 0. Returns 0.
    virtual int Clear();

    // For derived classes: brings the pixels to the display. Does nothing here. Returns 0.
    virtual int Update();

    // For derived classes: the value of a pixel of this colour. Here that is the colour itself.
    virtual unsigned int ConvertColor(unsigned int color);

    // The records are those of the canvas, not copies: they live as long as it does.
    HRect_t* Rect() const;
    HSize_t* Winsize() const;
    HArea_t* Padding() const;

    int Stride() const;             // bytes from one row of pixels to the next: rect.w * 4
    unsigned char* Buffer() const;  // the top left pixel, null without pixels
    int BufferSize() const;         // bytes, stride * rect.h; -1 after Destroy
    int ColorBit() const;           // bits of one pixel: 32
    void* Userdata() const;

  protected:
    void* m_pExternal;  // the buffer given to Create
    HSize_t m_winsize;
    void* m_pUserdata;
    HRect_t m_rect;
    int m_nStride;
    unsigned char* m_pBuffer;  // owned
    int m_nBufferSize;
    int m_nColorBit;
    HArea_t m_padding;
};

#endif

/// @file
/// @ingroup drawing
/// A buffer of pixels in memory that HCPainter draws into, and the geometry records of the drawing
/// classes.
#ifndef HYBASE_HCUTIL_HCANVAS_H
#define HYBASE_HCUTIL_HCANVAS_H

#include <hybase/export.h>
#include <stdint.h>

/// @ingroup drawing
/// A point.
struct HPoint_t {
    int32_t x;  ///< to the right
    int32_t y;  ///< downwards
};

/// @ingroup drawing
/// A rectangle.
struct HRect_t {
    int32_t x;  ///< left edge
    int32_t y;  ///< upper edge
    int32_t w;  ///< width, pixels
    int32_t h;  ///< height, pixels
};

/// @ingroup drawing
/// Margins, pixels.
struct HArea_t {
    int32_t left;    ///< at the left
    int32_t top;     ///< above
    int32_t right;   ///< at the right
    int32_t bottom;  ///< below
};

/// @ingroup drawing
/// A size.
struct HSize_t {
    int32_t w;  ///< width, pixels
    int32_t h;  ///< height, pixels
};

/// A buffer of pixels in memory that HCPainter draws into, and the geometry records of the drawing
/// classes.
///
/// The class itself keeps 32-bit pixels, row after row from the top, each in the byte order of the
/// machine. What the bits of a pixel mean is up to the colours it is given: 0xFF000000 is opaque
/// black for those who think of ARGB. A class for a real display derives from it and overrides
/// Update, which pushes the pixels out, and ConvertColor(), which maps a colour to the format of
/// the display (and sets m_nColorBit and the sizes in its Create when that has not 32 bits).
///
///     HSize_t screen = {1920, 1080};
///     HCanvas canvas;
///     canvas.Create({0, 0, 640, 480}, {8, 8, 8, 8}, nullptr, &screen, nullptr);
///     canvas.Clear();
///     ... draw with an HCPainter ...
///     canvas.Update();
///     canvas.Destroy();
///
/// @par Failures
/// None is reported, every operation returns 0; only Create may throw, std::bad_alloc.
///
/// @par Threads
/// A canvas is used by one thread at a time.
///
/// @ingroup drawing
class HYBASE_API HCanvas {
  public:
    HCanvas();  ///< no pixels yet: Create gives them

    /// Frees nothing: the owner calls Destroy first.
    virtual ~HCanvas();

    HCanvas(const HCanvas&) = delete;  ///< not to be copied
    HCanvas& operator=(const HCanvas&) = delete;

    /// Gives the canvas its pixels; they are not cleared.
    /// `rect`: position and size. `padding`: the painter keeps text and icons off the left and the
    /// top by it, and adds its height between lines of text. `buffer`: memory of the caller that a
    /// derived class may want to know; nothing here draws into it. `winsize`: size of the window or
    /// screen around the canvas, copied (a null pointer leaves it 0 x 0). `userdata`: handed back
    /// by Userdata(). Returns 0. Throws std::bad_alloc when there is no memory for the pixels, as
    /// for any canvas of 2 GiB or more or of a negative size; the canvas is without pixels then.
    /// Destroy one that has pixels before it is created anew: they would never be freed.
    virtual int Create(const HRect_t& rect, const HArea_t& padding, void* buffer, HSize_t* winsize,
                       void* userdata);

    /// Frees the pixels; what Buffer() returns is left as it was and must not be followed any more.
    /// Returns 0.
    virtual int Destroy();

    /// Sets every byte of the pixels to 0. Returns 0.
    virtual int Clear();

    /// For derived classes: brings the pixels to the display. Does nothing here. Returns 0.
    virtual int Update();

    /// For derived classes: the value of a pixel of this colour. Here that is the colour itself.
    virtual unsigned int ConvertColor(unsigned int color);

    /// Position and size: the record of the canvas itself, no copy, as are the next two. They live
    /// as long as the canvas.
    HRect_t* Rect() const;
    HSize_t* Winsize() const;  ///< size of the window around it
    HArea_t* Padding() const;  ///< its padding

    int Stride() const;             ///< bytes from one row of pixels to the next: rect.w * 4
    unsigned char* Buffer() const;  ///< the top left pixel, null without pixels
    int BufferSize() const;         ///< bytes, stride * rect.h; -1 after Destroy
    int ColorBit() const;           ///< bits of one pixel: 32
    void* Userdata() const;         ///< what Create was given

  protected:
    void* m_pExternal;         ///< the buffer given to Create
    HSize_t m_winsize;         ///< Winsize()
    void* m_pUserdata;         ///< Userdata()
    HRect_t m_rect;            ///< Rect()
    int m_nStride;             ///< Stride(), bytes
    unsigned char* m_pBuffer;  ///< owned
    int m_nBufferSize;         ///< BufferSize(), bytes
    int m_nColorBit;           ///< ColorBit()
    HArea_t m_padding;         ///< Padding()
};

#endif

/// @file
/// @ingroup drawing
/// Draws text in two bitmap fonts, lines, rectangles, polygons and small status icons on an
/// HCanvas.
#ifndef HYBASE_HCUTIL_HCPAINTER_H
#define HYBASE_HCUTIL_HCPAINTER_H

#include <hybase/export.h>
#include <hybase/hcutil/HCanvas.h>

#include <string>

/// @ingroup drawing
/// Status icons, see HCPainter::DrawIcon().
enum HCPainterIcon_e : int {
    ICON_NUMBER = 1,  ///< the value as decimal text
    ICON_SIGNAL = 2,  ///< five bars of growing height
    ICON_WIFI = 3,    ///< a dot and three arcs
};

/// Draws text in two bitmap fonts, lines, rectangles, polygons and small status icons on an
/// HCanvas.
///
///     HCPainter::LoadFontFile("/usr/share/fonts/cn16", "/usr/share/fonts/en16");  // once
///
///     HCPainter painter;
///     painter.SetCanvas(&canvas);           // first: colours are converted by the canvas
///     painter.SetColor(0xFFFFFFFF, 0x00000000);
///     painter.SetBorder(1, 0xFF000000);
///     painter.DrawText("Camera 1", 16, 16);
///     painter.DrawRect({100, 100, 320, 240});
///
/// @par Coordinates
/// Text, lines, rectangles and regions are given in a reference space, by default the size of the
/// canvas: (x, y) is the pixel (canvas w * x / reference w, canvas h * y / reference h), whole
/// numbers, multiplied first and truncated. So one list of drawing calls fits every canvas. Icons
/// are placed in pixels. Sizes (font, icon, thickness) are pixels everywhere.
///
/// @par Edges
/// What lies beyond the canvas is not drawn: text and icons are clipped, a line with an end outside
/// is left out. Text and icons keep to the right of the padding of the canvas on the left and below
/// its padding at the top; nothing keeps them off the other two.
///
/// @par Colours
/// They are values of a pixel, of which as many bytes are written as the canvas has per pixel.
/// Nothing is blended: the background of text and icons covers what was there.
///
/// @par Results
/// 0, or -1 for a failure: without a canvas that has a buffer (logged at level ERR as `"canvas is
/// NULL\n"`), and for a reference size of 0. A failure draws nothing and changes no setting.
/// Records name "HCPainter" as their file. Nothing throws.
///
/// @par Threads
/// A painter and its canvas are used by one thread at a time. The fonts are shared by the whole
/// process; any thread may load them at any time, drawing goes on with those it began with.
///
/// @ingroup drawing
class HYBASE_API HCPainter {
  public:
    /// No canvas, reference size 0 x 0, text 0xFF000000 on background 0, border width 0, font size
    /// 32, line width 1, everything else 0.
    HCPainter();

    /// Releases nothing: the canvas is the caller's, the fonts are the process's.
    ~HCPainter();  // NOLINT(performance-trivially-destructible): programs link to it

    /// Loads the two fonts of the process. Both files are mapped, never read as a whole, and stay
    /// mapped for the life of the process, those replaced by a later call included, and also one
    /// that was mapped before the other failed: do not write into a font file in use (replace it by
    /// renaming), and do not retry a failing call endlessly.
    ///
    /// `cnFontPath`: the two-byte font. A header of 16 bytes, of which byte 9 is the glyph size N
    /// in pixels; then 94 x 94 glyphs of N rows of N / 8 bytes, most significant bit on the left.
    /// The characters b1 b2 of GB2312, both 0xA1 to 0xFE, are glyph (b1 - 0xA1) * 94 + (b2 - 0xA1).
    /// `enFontPath`: the single-byte font. No header; the glyphs of the codes 32 to 127, N * N / 16
    /// bytes apart, N being that of the two-byte font; one byte a row, so that a glyph has at most
    /// 8 columns of its cell of N / 2.
    /// The files may be shorter than that: what they lack is drawn as background, and so is
    /// everything with an N of 0.
    ///
    /// Returns 0, or -1 with a record of level ERR: `"Open en font failed, file:%s...\n"`, then
    /// `"mmap failed...\n"` (an empty file, too), `"Open cn font failed, file:%s...\n"`, `"mmap
    /// failed...\n"`; when memory is short, without one. After -1 the fonts are those loaded
    /// before.
    static int LoadFontFile(const std::string& cnFontPath, const std::string& enFontPath);

    /// Sets the canvas, which must outlive its use here, and what follows from it: the reference
    /// size, the line width (2 up to 720 x 576 pixels, else 5) and the colour mask (ColorBit()
    /// bits). A null pointer takes the canvas away and leaves these. Returns 0.
    int SetCanvas(HCanvas* canvas);

    /// Sets the size of the reference space. The origin is stored, but moves nothing. Returns 0.
    int SetRefCoords(const HPoint_t& origin, int refWidth, int refHeight);

    /// Sets the colour of text and lines, and the background of text and icons, as the canvas
    /// converts them (as they are without a canvas). Returns 0.
    int SetColor(unsigned int textColor, unsigned int bgColor);

    /// Outlines text when `width` is above 0 (how far above does not matter), in `color` as the
    /// canvas converts it. Returns 0.
    int SetBorder(int width, unsigned int color);

    /// Height of a line of text, and width of a two-byte character; a single-byte character is half
    /// as wide (rounded down). Also the size of the bars and the arcs. 0 or less draws nothing.
    /// Returns 0.
    int SetFontsize(int size);

    /// Stored, but not used by any drawing: thickness follows from the size of the canvas. Returns
    /// 0.
    int SetLineWidth(int width);
    int SetLineType(int type);             ///< stored, but not used either; returns 0
    int SetFillColor(unsigned int color);  ///< the same; not converted by the canvas

    /// 1: DrawRect() marks the corners; anything else: DrawRect() draws the outline. Returns 0.
    int SetRectType(int type);

    /// Returns the size of the box that `text` needs at this font size, a margin around each line
    /// included at the top and the bottom, around the longest line at the left and the right. The
    /// longest line is the one of most bytes, and of those the first. `reserved` is ignored. A font
    /// size of 0 is measured as 16 in the width.
    /// Too many lines (see DrawText()): logs `"Too many string lines\n"` at level ERR, the height
    /// is that of -1 lines.
    static HSize_t BuildTextSize(const std::string& text, const HArea_t& margin, int reserved,
                                 int fontSize);

    /// Draws text with its top left corner at (x, y) of the reference space.
    ///
    /// A byte below 32 is drawn as a blank, one of 32 to 127 in the single-byte font; a byte of 128
    /// or more and the next one of the line are a two-byte character, an empty cell where they are
    /// none of GB2312. `"\n"` begins a new line, which stands font size + top padding + bottom
    /// padding of the canvas below. Only the first 1023 bytes are drawn. A text of more than 20
    /// lines, or of 20 lines that all end in `"\n"`, is not drawn: `"Too many string lines\n"` is
    /// logged at level ERR. Without fonts each line logs `"ERROR: font not init successfully\n"` at
    /// level ERR; a canvas of less than 8 bits per pixel logs `"not support\n"` at level WARN. All
    /// of these return 0 and set the end position.
    ///
    /// With a border, every pixel of the whole canvas that has the text colour is then outlined, so
    /// give outlined text a colour of its own. Sizes above 16 get an outline of two pixels with cut
    /// corners. Up to 16 it has one pixel, and two below; this one counts in bytes and is made for
    /// canvases of 8 bits per pixel: on deeper ones it overwrites parts of the text, and it spreads
    /// over the whole canvas when the lowest byte of the border colour is one that the text colour
    /// consists of. Outline at 17 pixels or more there.
    ///
    /// The end position is the pixel behind the text, as if all of it (past 1023 bytes as well)
    /// stood in one line in which `"\n"` has the width of a character.
    int DrawText(const std::string& text, int x, int y);

    /// The end position of the last DrawText() or DrawIcon(), pixels. Returns 0.
    int GetEndPos(int& x, int& y);

    /// Sets every byte of the canvas to 0, if there is one with a buffer. Returns 0.
    int Clear();

    /// Not implemented: draws nothing and returns 0.
    int DrawBMP(const std::string& path, int x, int y);

    /// Not implemented: draws nothing and returns 0.
    int DrawBMP(const unsigned char* data, int w, int h, int stride);

    /// Draws a straight line in the text colour. With an end outside the canvas it is silently left
    /// out, and so is a sloped one whose ends fall into one column of pixels.
    /// It is 2 pixels thick on a canvas of up to 720 x 576 pixels, to the right of a vertical and
    /// below a horizontal line; 5 pixels on a larger canvas, to both sides. Vertical lines near the
    /// left or right edge are 1 pixel thick.
    /// The last pixel of vertical and horizontal lines (the right or lower one) is not drawn, but
    /// in the rows beside a horizontal one it takes the pixel of its own row.
    int DrawLine(const HPoint_t& from, const HPoint_t& to);

    /// Draws a rectangle in the style of SetRectType(). Returns 0.
    int DrawRect(const HRect_t& rect);

    /// The four sides of a rectangle. Returns 0.
    int drawRect(const HRect_t& rect);

    /// The corners of a rectangle, with arms of an eighth of its width in both directions. Returns
    /// 0.
    int drawRectMini(const HRect_t& rect);

    /// Draws the lines between `count` points and from the last one back to the first. Returns 0.
    int DrawRegion(const HPoint_t* points, int count);

    /// Draws an icon with its top left corner at (x, y), in pixels, and sets the end position to
    /// two pixels right of that. ICON_SIGNAL and ICON_WIFI are as large as the font. They have
    /// levels 1 to 5 and 1 to 4, of which those up to `value` (its low byte) get the text colour,
    /// the others the grey 0xFF525252 as the canvas converts it. ICON_NUMBER draws `value` with
    /// DrawText(), for which (x, y) are coordinates of the reference space. Another icon logs `"not
    /// support\n"` at level WARN. These return 0 whatever happens.
    int DrawIcon(HCPainterIcon_e icon, int value, int x, int y);

  protected:
    HCanvas* m_pCanvas;           ///< not owned
    HPoint_t m_ptRef;             ///< origin of the reference space, moves nothing
    int m_nRefWidth;              ///< its width
    int m_nRefHeight;             ///< its height
    unsigned int m_nBgColor;      ///< background of text and icons, converted
    unsigned int m_nTextColor;    ///< text and lines, converted
    unsigned int m_nBorderColor;  ///< outline of text, converted
    int m_nBorderWidth;           ///< above 0: text is outlined
    int m_nFontSize;              ///< pixels
    int m_nLineWidth;             ///< pixels, not used by any drawing
    unsigned int m_nColorMask;    ///< the bits of a pixel of the canvas
    int m_nEndX;                  ///< end position of the last text or icon, pixels
    int m_nEndY;                  ///< the same, downwards
    int m_nRectType;              ///< 1: DrawRect() marks the corners
    int m_nLineType;              ///< not used by any drawing
    unsigned int m_nFillColor;    ///< not used by any drawing
};

#endif

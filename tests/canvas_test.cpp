#include <gtest/gtest.h>
#include <hybase/hcutil/HCanvas.h>
#include <string.h>

#include <new>

#include "support/vtable_slots.h"

namespace {

TEST(Canvas, KeepsWhatItWasCreatedWith) {
    HCanvas canvas;
    EXPECT_EQ(canvas.Destroy() + canvas.Clear(), 0);  // nothing to free yet
    HSize_t screen = {1920, 1080};
    ASSERT_EQ(canvas.Create({7, 8, 100, 50}, {1, 2, 3, 4}, nullptr, &screen, &screen), 0);
    EXPECT_EQ(canvas.Stride(), 400);
    EXPECT_EQ(canvas.BufferSize(), 20000);
    EXPECT_EQ(canvas.ColorBit(), 32);
    EXPECT_EQ(canvas.Userdata(), &screen);
    EXPECT_EQ(canvas.Rect()->x * 1000 + canvas.Padding()->left * 100 + canvas.Rect()->h, 7150);
    EXPECT_EQ(canvas.Winsize()->w - canvas.Winsize()->h, 840);
    EXPECT_EQ(canvas.ConvertColor(0x12345678), 0x12345678u);

    unsigned char* const buffer = canvas.Buffer();
    memset(buffer, 1, 20000);
    EXPECT_EQ(canvas.Clear() + canvas.Update(), 0);
    EXPECT_EQ(std::string(buffer, buffer + 20000), std::string(20000, '\0'));
    EXPECT_EQ(canvas.Destroy() + canvas.Destroy() + canvas.Clear(), 0);  // freed once
    EXPECT_EQ(canvas.Buffer(), buffer);
    EXPECT_EQ(VtableSlot(&HCanvas::Create) * 10 + VtableSlot(&HCanvas::Destroy), 23);
    EXPECT_EQ(VtableSlot(&HCanvas::Clear) * 10 + VtableSlot(&HCanvas::Update), 45);
    EXPECT_EQ(VtableSlot(&HCanvas::ConvertColor), 6);
}

TEST(Canvas, WithoutMemoryThereIsNoBuffer) {
    for (const HSize_t size : {HSize_t{1 << 30, 4}, {65536, 8192}, {-1, 1}, {1, -1}, {-1, -1}}) {
        HCanvas canvas;
        EXPECT_THROW(canvas.Create({0, 0, size.w, size.h}, {}, nullptr, nullptr, nullptr),
                     std::bad_alloc);
        EXPECT_EQ(canvas.Clear() + canvas.Destroy() + (canvas.Buffer() != nullptr), 0);
    }
}

}  // namespace

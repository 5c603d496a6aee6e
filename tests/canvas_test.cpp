#include <gtest/gtest.h>
#include <hybase/hcutil/HCanvas.h>
#include <string.h>

#include <new>

#include "support/vtable_slots.h"

namespace {

TEST(Canvas, KeepsWhatItWasCreatedWith) {
    HCanvas canvas;
    EXPECT_EQ(canvas.Destroy(), 0);  // nothing to free yet
    EXPECT_EQ(canvas.Clear(), 0);
    HSize_t screen = {1920, 1080};
    ASSERT_EQ(canvas.Create({7, 8, 100, 50}, {1, 2, 3, 4}, nullptr, &screen, &screen), 0);
    EXPECT_EQ(canvas.Stride(), 400);
    EXPECT_EQ(canvas.BufferSize(), 20000);
    EXPECT_EQ(canvas.ColorBit(), 32);
    EXPECT_EQ(canvas.Userdata(), &screen);
    EXPECT_EQ(canvas.Rect()->x, 7);
    EXPECT_EQ(canvas.Rect()->h, 50);
    EXPECT_EQ(canvas.Padding()->left, 1);
    EXPECT_EQ(canvas.Winsize()->w, 1920);
    EXPECT_EQ(canvas.Winsize()->h, 1080);
    EXPECT_EQ(canvas.ConvertColor(0x12345678), 0x12345678u);

    unsigned char* const buffer = canvas.Buffer();
    memset(buffer, 1, 20000);
    EXPECT_EQ(canvas.Clear(), 0);
    EXPECT_EQ(canvas.Update(), 0);
    EXPECT_EQ(std::string(buffer, buffer + 20000), std::string(20000, '\0'));
    for (int i = 0; i < 2; i++) EXPECT_EQ(canvas.Destroy(), 0);  // freed once
    EXPECT_EQ(canvas.Clear(), 0);
    EXPECT_EQ(canvas.Buffer(), buffer);
    EXPECT_EQ(VtableSlot(&HCanvas::Create), 2);
    EXPECT_EQ(VtableSlot(&HCanvas::Destroy), 3);
    EXPECT_EQ(VtableSlot(&HCanvas::Clear), 4);
    EXPECT_EQ(VtableSlot(&HCanvas::Update), 5);
    EXPECT_EQ(VtableSlot(&HCanvas::ConvertColor), 6);
}

TEST(Canvas, WithoutMemoryThereIsNoBuffer) {
    for (const HSize_t size : {HSize_t{1 << 30, 4}, {65536, 8192}, {-1, 1}, {1, -1}, {-1, -1}}) {
        HCanvas canvas;
        EXPECT_THROW(canvas.Create({0, 0, size.w, size.h}, {}, nullptr, nullptr, nullptr),
                     std::bad_alloc);
        EXPECT_EQ(canvas.Clear(), 0);
        EXPECT_EQ(canvas.Destroy(), 0);
        EXPECT_EQ(canvas.Buffer(), nullptr);
    }
}

}  // namespace

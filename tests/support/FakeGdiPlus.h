#pragma once

#include "Installer/GdiPlus.h"
#include "support/ImportTableFake.h"
#include "support/Journal.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

namespace Testing
{

// GDI+ that draws nothing. Every call goes to the journal, by the names of the flat interface. Its objects are named
// for what they were made of: "graphics(...)", "family(...)", "font(...)", "brush(...)", "format(...)", "bitmap(...)".
class FakeGdiPlus
{
public:
    explicit FakeGdiPlus(Journal& journal) : m_journal(journal) {}

    // The names of the objects that are not deleted yet, and "GDI+ <version>" while it is started.
    std::vector<std::string> Living() const;

    // How many objects have been made so far.
    std::size_t Created() const { return m_created; }

private:
    using Status = Gdiplus::GpStatus;

    // What lies behind the pointers.
    template <class Object>
    Status Create(const std::string& function, const std::string& name, Object** object)
    {
        void* created = nullptr;
        const Status status = CreateNamed(function, name, created);
        if (status == Gdiplus::Ok)
        {
            *object = static_cast<Object*>(created);
        }
        return status;
    }
    Status CreateNamed(const std::string& function, const std::string& name, void*& created);
    Status Delete(const std::string& function, const void* object);
    template <class... Arguments>
    Status Call(const std::string& function, const Arguments&... arguments)
    {
        m_journal.Add(function, arguments...);
        return m_journal.Fails(function) ? Gdiplus::GenericError : Gdiplus::Ok;
    }
    std::string ReadAll(IStream& stream);

    Journal& m_journal;
    std::size_t m_created = 0;
    std::map<const void*, std::string> m_living;

    Fake<&Gdiplus::GdiplusStartup> m_startup = [this](ULONG_PTR* token, const Gdiplus::GdiplusStartupInput* input,
                                                      Gdiplus::GdiplusStartupOutput* output) {
        EXPECT_EQ(input->DebugEventCallback, nullptr);
        EXPECT_FALSE(input->SuppressBackgroundThread);
        EXPECT_FALSE(input->SuppressExternalCodecs);
        EXPECT_EQ(output, nullptr);
        void* started = nullptr;
        const Status status = CreateNamed("GdiplusStartup", "GDI+ " + std::to_string(input->GdiplusVersion), started);
        *token = reinterpret_cast<ULONG_PTR>(started);
        return status;
    };
    Fake<&Gdiplus::GdiplusShutdown> m_shutdown = [this](ULONG_PTR token) {
        Delete("GdiplusShutdown", reinterpret_cast<void*>(token));
    };
    Fake<&Gdiplus::DllExports::GdipCreateBitmapFromStream> m_bitmapFromStream = [this](IStream* stream,
                                                                                       Gdiplus::GpBitmap** bitmap) {
        return Create("GdipCreateBitmapFromStream", "bitmap(" + ReadAll(*stream) + ")", bitmap);
    };
    Fake<&Gdiplus::DllExports::GdipDisposeImage> m_disposeImage = [this](Gdiplus::GpImage* image) {
        return Delete("GdipDisposeImage", image);
    };
    Fake<&Gdiplus::DllExports::GdipCreateFromHDC> m_createFromHdc = [this](HDC dc, Gdiplus::GpGraphics** graphics) {
        return Create("GdipCreateFromHDC", "graphics(" + m_journal.NameOf(dc) + ")", graphics);
    };
    Fake<&Gdiplus::DllExports::GdipDeleteGraphics> m_deleteGraphics = [this](Gdiplus::GpGraphics* graphics) {
        return Delete("GdipDeleteGraphics", graphics);
    };
    Fake<&Gdiplus::DllExports::GdipSetSmoothingMode> m_setSmoothingMode = [this](Gdiplus::GpGraphics* graphics,
                                                                                 Gdiplus::SmoothingMode mode) {
        return Call("GdipSetSmoothingMode", graphics, int{mode});
    };
    Fake<&Gdiplus::DllExports::GdipSetTextRenderingHint> m_setTextRenderingHint =
        [this](Gdiplus::GpGraphics* graphics, Gdiplus::TextRenderingHint hint) {
            return Call("GdipSetTextRenderingHint", graphics, int{hint});
        };
    Fake<&Gdiplus::DllExports::GdipSetInterpolationMode> m_setInterpolationMode =
        [this](Gdiplus::GpGraphics* graphics, Gdiplus::InterpolationMode mode) {
            return Call("GdipSetInterpolationMode", graphics, int{mode});
        };
    Fake<&Gdiplus::DllExports::GdipSetCompositingQuality> m_setCompositingQuality =
        [this](Gdiplus::GpGraphics* graphics, Gdiplus::CompositingQuality quality) {
            return Call("GdipSetCompositingQuality", graphics, int{quality});
        };
    Fake<&Gdiplus::DllExports::GdipSetPixelOffsetMode> m_setPixelOffsetMode = [this](Gdiplus::GpGraphics* graphics,
                                                                                     Gdiplus::PixelOffsetMode mode) {
        return Call("GdipSetPixelOffsetMode", graphics, int{mode});
    };
    Fake<&Gdiplus::DllExports::GdipCreateFontFamilyFromName> m_createFontFamily =
        [this](const WCHAR* name, Gdiplus::GpFontCollection* collection, Gdiplus::GpFontFamily** family) {
            return Create("GdipCreateFontFamilyFromName",
                          "family(" + Narrow(name) + (collection == nullptr ? "" : ", of a collection") + ")", family);
        };
    Fake<&Gdiplus::DllExports::GdipDeleteFontFamily> m_deleteFontFamily = [this](Gdiplus::GpFontFamily* family) {
        return Delete("GdipDeleteFontFamily", family);
    };
    Fake<&Gdiplus::DllExports::GdipCreateFont> m_createFont = [this](const Gdiplus::GpFontFamily* family,
                                                                     Gdiplus::REAL size, INT style, Gdiplus::Unit unit,
                                                                     Gdiplus::GpFont** font) {
        return Create("GdipCreateFont",
                      "font(" + m_journal.NameOf(family) + ", " + m_journal.Describe(size) + ", style " +
                          m_journal.Describe(style) + ", unit " + m_journal.Describe(int{unit}) + ")",
                      font);
    };
    Fake<&Gdiplus::DllExports::GdipDeleteFont> m_deleteFont = [this](Gdiplus::GpFont* font) {
        return Delete("GdipDeleteFont", font);
    };
    Fake<&Gdiplus::DllExports::GdipCreateSolidFill> m_createSolidFill = [this](Gdiplus::ARGB color,
                                                                               Gdiplus::GpSolidFill** brush) {
        return Create("GdipCreateSolidFill", "brush(" + Hex(color) + ")", brush);
    };
    Fake<&Gdiplus::DllExports::GdipDeleteBrush> m_deleteBrush = [this](Gdiplus::GpBrush* brush) {
        return Delete("GdipDeleteBrush", brush);
    };
    Fake<&Gdiplus::DllExports::GdipCreateStringFormat> m_createStringFormat = [this](INT flags, LANGID language,
                                                                                     Gdiplus::GpStringFormat** format) {
        return Create("GdipCreateStringFormat",
                      "format(" + m_journal.Describe(flags) + ", " + m_journal.Describe(language) + ")", format);
    };
    Fake<&Gdiplus::DllExports::GdipDeleteStringFormat> m_deleteStringFormat = [this](Gdiplus::GpStringFormat* format) {
        return Delete("GdipDeleteStringFormat", format);
    };
    Fake<&Gdiplus::DllExports::GdipSetStringFormatAlign> m_setAlign = [this](Gdiplus::GpStringFormat* format,
                                                                             Gdiplus::StringAlignment alignment) {
        return Call("GdipSetStringFormatAlign", format, int{alignment});
    };
    Fake<&Gdiplus::DllExports::GdipSetStringFormatLineAlign> m_setLineAlign =
        [this](Gdiplus::GpStringFormat* format, Gdiplus::StringAlignment alignment) {
            return Call("GdipSetStringFormatLineAlign", format, int{alignment});
        };
    Fake<&Gdiplus::DllExports::GdipFillRectangle> m_fillRectangle =
        [this](Gdiplus::GpGraphics* graphics, Gdiplus::GpBrush* brush, Gdiplus::REAL x, Gdiplus::REAL y,
               Gdiplus::REAL width,
               Gdiplus::REAL height) { return Call("GdipFillRectangle", graphics, brush, x, y, width, height); };
    Fake<&Gdiplus::DllExports::GdipDrawImageRect> m_drawImageRect =
        [this](Gdiplus::GpGraphics* graphics, Gdiplus::GpImage* image, Gdiplus::REAL x, Gdiplus::REAL y,
               Gdiplus::REAL width,
               Gdiplus::REAL height) { return Call("GdipDrawImageRect", graphics, image, x, y, width, height); };
    Fake<&Gdiplus::DllExports::GdipDrawString> m_drawString =
        [this](Gdiplus::GpGraphics* graphics, const WCHAR* text, INT length, const Gdiplus::GpFont* font,
               const Gdiplus::RectF* area, const Gdiplus::GpStringFormat* format, const Gdiplus::GpBrush* brush) {
            return Call("GdipDrawString", graphics, text, length, font, area->X, area->Y, area->Width, area->Height,
                        format, brush);
        };
};

} // namespace Testing

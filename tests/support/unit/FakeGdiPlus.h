#pragma once

#include "Installer/GdiPlus.h"
#include "support/common/ImportTableFake.h"
#include "support/unit/Journal.h"
#include "support/unit/RecordedCall.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <map>
#include <string>

namespace Testing
{

// GDI+ that draws nothing. Every call goes to the journal, by the names of the flat interface. Its objects are named
// for what they were made of: "graphics(...)", "family(...)", "font(...)", "brush(...)", "format(...)", "bitmap(...)".
class FakeGdiPlus
{
public:
    explicit FakeGdiPlus(Journal& journal) : m_journal(journal) {}

    // The names of the objects that are not deleted yet, and "GDI+ <version>" while it is started.
    Calls Living() const
    {
        Calls names;
        for (const auto& [object, name] : m_living)
        {
            names.push_back(name);
        }
        return names;
    }

private:
    using Status = Gdiplus::GpStatus;

    template <auto Function>
    struct Use : RecordedCall<Function>
    {
        explicit Use(Journal& journal) : RecordedCall<Function>(journal, Gdiplus::Ok, Gdiplus::GenericError) {}
    };

    template <auto Function>
    struct Deletion : Fake<Function>
    {
        explicit Deletion(FakeGdiPlus& gdiPlus)
            : Fake<Function>([&gdiPlus](const auto* object) {
                  gdiPlus.Delete(Details::NameOf<Function>().data(), object);
                  return Gdiplus::Ok;
              })
        {}
    };

    template <class Object>
    Status Create(const std::string& function, const std::string& name, Object** object)
    {
        if (m_journal.Add(function, name) != ERROR_SUCCESS)
        {
            return Gdiplus::GenericError;
        }
        // Never seen again, so that the use of a deleted object is noticed.
        *object = reinterpret_cast<Object*>(m_last += 16);
        m_living[*object] = name;
        m_journal.Name(*object, name);
        return Gdiplus::Ok;
    }

    void Delete(const std::string& function, const void* object)
    {
        // GDI+'s own classes delete what they could not create, too.
        if (object != nullptr)
        {
            EXPECT_EQ(m_living.erase(object), 1U) << function << " of " << m_journal.NameOf(object);
            m_journal.Add(function, object);
            m_journal.Name(object, "deleted " + m_journal.NameOf(object));
        }
    }

    Journal& m_journal;
    ULONG_PTR m_last = 0x600000;
    std::map<const void*, std::string> m_living;

    Fake<&Gdiplus::GdiplusStartup> m_startup = [this](ULONG_PTR* token, const Gdiplus::GdiplusStartupInput* input,
                                                      Gdiplus::GdiplusStartupOutput* output) {
        EXPECT_TRUE(input->DebugEventCallback == nullptr && output == nullptr);
        EXPECT_FALSE(input->SuppressBackgroundThread || input->SuppressExternalCodecs);
        void* started = nullptr;
        const Status status = Create("GdiplusStartup", "GDI+ " + std::to_string(input->GdiplusVersion), &started);
        *token = reinterpret_cast<ULONG_PTR>(started);
        return status;
    };
    Fake<&Gdiplus::GdiplusShutdown> m_shutdown = [this](ULONG_PTR token) {
        Delete("GdiplusShutdown", reinterpret_cast<void*>(token));
    };
    Fake<&Gdiplus::DllExports::GdipCreateBitmapFromStream> m_createBitmap = [this](IStream* stream,
                                                                                   Gdiplus::GpBitmap** bitmap) {
        char bytes[100];
        ULONG length = 0;
        EXPECT_EQ(stream->Read(bytes, sizeof(bytes), &length), S_OK);
        return Create("GdipCreateBitmapFromStream", "bitmap(" + std::string(bytes, length) + ")", bitmap);
    };
    Fake<&Gdiplus::DllExports::GdipCreateFromHDC> m_createGraphics = [this](HDC dc, Gdiplus::GpGraphics** graphics) {
        return Create("GdipCreateFromHDC", "graphics(" + m_journal.NameOf(dc) + ")", graphics);
    };
    Fake<&Gdiplus::DllExports::GdipCreateFontFamilyFromName> m_createFamily =
        [this](const WCHAR* name, Gdiplus::GpFontCollection* collection, Gdiplus::GpFontFamily** family) {
            EXPECT_EQ(collection, nullptr);
            return Create("GdipCreateFontFamilyFromName", "family(" + Narrow(name) + ")", family);
        };
    Fake<&Gdiplus::DllExports::GdipCreateFont> m_createFont = [this](const Gdiplus::GpFontFamily* family,
                                                                     Gdiplus::REAL size, INT style, Gdiplus::Unit unit,
                                                                     Gdiplus::GpFont** font) {
        return Create("GdipCreateFont",
                      "font(" + m_journal.NameOf(family) + ", " + m_journal.Describe(size) + ", style " +
                          std::to_string(style) + ", unit " + std::to_string(unit) + ")",
                      font);
    };
    Fake<&Gdiplus::DllExports::GdipCreateSolidFill> m_createBrush = [this](Gdiplus::ARGB color,
                                                                           Gdiplus::GpSolidFill** brush) {
        return Create("GdipCreateSolidFill", "brush(" + Hex(color) + ")", brush);
    };
    Fake<&Gdiplus::DllExports::GdipCreateStringFormat> m_createFormat = [this](INT flags, LANGID language,
                                                                               Gdiplus::GpStringFormat** format) {
        return Create("GdipCreateStringFormat",
                      "format(" + std::to_string(flags) + ", " + std::to_string(language) + ")", format);
    };
    Deletion<&Gdiplus::DllExports::GdipDisposeImage> m_disposeImage{*this};
    Deletion<&Gdiplus::DllExports::GdipDeleteGraphics> m_deleteGraphics{*this};
    Deletion<&Gdiplus::DllExports::GdipDeleteFontFamily> m_deleteFamily{*this};
    Deletion<&Gdiplus::DllExports::GdipDeleteFont> m_deleteFont{*this};
    Deletion<&Gdiplus::DllExports::GdipDeleteBrush> m_deleteBrush{*this};
    Deletion<&Gdiplus::DllExports::GdipDeleteStringFormat> m_deleteFormat{*this};
    Use<&Gdiplus::DllExports::GdipSetSmoothingMode> m_setSmoothingMode{m_journal};
    Use<&Gdiplus::DllExports::GdipSetTextRenderingHint> m_setTextRenderingHint{m_journal};
    Use<&Gdiplus::DllExports::GdipSetInterpolationMode> m_setInterpolationMode{m_journal};
    Use<&Gdiplus::DllExports::GdipSetCompositingQuality> m_setCompositingQuality{m_journal};
    Use<&Gdiplus::DllExports::GdipSetPixelOffsetMode> m_setPixelOffsetMode{m_journal};
    Use<&Gdiplus::DllExports::GdipSetStringFormatAlign> m_setAlign{m_journal};
    Use<&Gdiplus::DllExports::GdipSetStringFormatLineAlign> m_setLineAlign{m_journal};
    Use<&Gdiplus::DllExports::GdipFillRectangle> m_fillRectangle{m_journal};
    Use<&Gdiplus::DllExports::GdipDrawImageRect> m_drawImageRect{m_journal};
    Fake<&Gdiplus::DllExports::GdipDrawString> m_drawString =
        [this](Gdiplus::GpGraphics* graphics, const WCHAR* text, INT length, const Gdiplus::GpFont* font,
               const Gdiplus::RectF* area, const Gdiplus::GpStringFormat* format, const Gdiplus::GpBrush* brush) {
            const DWORD error = m_journal.Add("GdipDrawString", graphics, text, length, font, area->X, area->Y,
                                              area->Width, area->Height, format, brush);
            return error == ERROR_SUCCESS ? Gdiplus::Ok : Gdiplus::GenericError;
        };
};

} // namespace Testing

#include "pdf_page_libraries.h"

#include "backends/pdf_pages/pdf_pages.h"
#include "backends/pdf_render/pdf_render.h"
#include "core/runtime.h"
#include "module_loader.h"

namespace pw {

void *requiredSymbol(const char *module, const char *symbol)
{
    if (void *address = moduleSymbol(module, symbol))
        return address;
    throw RuntimeError(48, QStringLiteral("Error in loading DLL: %1 (%2)")
                               .arg(QString::fromUtf8(module), QString::fromUtf8(symbol)));
}

namespace {

// The entry points are looked up at each call: a lookup in a loaded module costs far less than
// a page, and a module that cannot be loaded fails the call that needs it, not the program.
class OurRenderer final : public PdfToImageLibrary {
public:
    int32_t apOpen(const std::string &path, const std::string &text1,
                   const std::string &text2) override
    {
        return moduleEntry<decltype(&::apOpen)>(render::kModule, "apOpen")(
            path.c_str(), text1.c_str(), text2.c_str());
    }
    int32_t apSetProperty(int32_t handle, int32_t property, const std::string &text,
                          int32_t number1, int32_t number2) override
    {
        return moduleEntry<decltype(&::apSetProperty)>(render::kModule, "apSetProperty")(
            handle, property, text.c_str(), number1, number2);
    }
    int32_t apConvertPage(int32_t handle, int32_t page) override
    {
        return moduleEntry<decltype(&::apConvertPage)>(render::kModule, "apConvertPage")(handle,
                                                                                         page);
    }
    int32_t apClose(int32_t handle) override
    {
        return moduleEntry<decltype(&::apClose)>(render::kModule, "apClose")(handle);
    }
};

class OurPages final : public PdfPagesLibrary {
public:
    int32_t apCreateMerge(const std::string &output) override
    {
        return moduleEntry<decltype(&::apCreateMerge)>(pages::kModule,
                                                       "apCreateMerge")(output.c_str());
    }
    int32_t apOpenSplit(const std::string &source) override
    {
        return moduleEntry<decltype(&::apOpenSplit)>(pages::kModule, "apOpenSplit")(source.c_str());
    }
    int32_t apSetFunction(int32_t handle, int32_t code, int32_t number1, int32_t number2,
                          const std::string &text1, const std::string &text2) override
    {
        return moduleEntry<decltype(&::apSetFunction)>(pages::kModule, "apSetFunction")(
            handle, code, number1, number2, text1.c_str(), text2.c_str());
    }
    int32_t apClose(int32_t handle) override
    {
        return moduleEntry<decltype(&::apClose)>(pages::kModule, "apClose")(handle);
    }
};

} // namespace

PdfToImageLibrary &PdfToImageLibrary::ours()
{
    static OurRenderer renderer;
    return renderer;
}

PdfPagesLibrary &PdfPagesLibrary::ours()
{
    static OurPages pages;
    return pages;
}

} // namespace pw

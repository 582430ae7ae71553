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

// The entry points are looked up at each call: a lookup in a loaded module costs far less than
// a page, and a module that cannot be loaded fails the call that needs it, not the program.
int32_t PdfRenderModule::apOpen(const std::string &path, const std::string &text1,
                                const std::string &text2)
{
    pw_module_error error{};
    const int32_t handle = moduleEntry<decltype(&::pw_render_open)>(
        render::kModule, "pw_render_open")(path.c_str(), text1.c_str(), text2.c_str(), &error);
    failure_ = error.text;
    return handle;
}

int32_t PdfRenderModule::apSetProperty(int32_t handle, int32_t property, const std::string &text,
                                       int32_t number1, int32_t number2)
{
    return moduleEntry<decltype(&::pw_render_set_property)>(
        render::kModule, "pw_render_set_property")(handle, property, text.c_str(), number1,
                                                   number2);
}

int32_t PdfRenderModule::apConvertPage(int32_t handle, int32_t page)
{
    pw_module_error error{};
    const int32_t result = moduleEntry<decltype(&::pw_render_convert_page)>(
        render::kModule, "pw_render_convert_page")(handle, page, &error);
    failure_ = error.text;
    return result;
}

int32_t PdfRenderModule::apClose(int32_t handle)
{
    return moduleEntry<decltype(&::pw_render_close)>(render::kModule, "pw_render_close")(handle);
}

PdfToImageLibrary &PdfToImageLibrary::ours()
{
    thread_local PdfRenderModule renderer;
    return renderer;
}

PdfPagesLibrary &PdfPagesLibrary::ours()
{
    thread_local PdfPagesModule pages;
    return pages;
}

// The module fills `error` only when it has something to say.
template <typename Call> int32_t PdfPagesModule::noting(Call &&call)
{
    pw_module_error error{};
    const int32_t result = call(&error);
    failure_ = error.text;
    return result;
}

int32_t PdfPagesModule::apCreateMerge(const std::string &output)
{
    return noting([&](pw_module_error *error) {
        return moduleEntry<decltype(&::pw_pages_create_merge)>(
            pages::kModule, "pw_pages_create_merge")(output.c_str(), error);
    });
}

int32_t PdfPagesModule::apOpenSplit(const std::string &source)
{
    return noting([&](pw_module_error *error) {
        return moduleEntry<decltype(&::pw_pages_open_split)>(pages::kModule, "pw_pages_open_split")(
            source.c_str(), error);
    });
}

int32_t PdfPagesModule::apSetFunction(int32_t handle, int32_t code, int32_t number1,
                                      int32_t number2, const std::string &text1,
                                      const std::string &text2)
{
    return noting([&](pw_module_error *error) {
        return moduleEntry<decltype(&::pw_pages_set_function)>(
            pages::kModule, "pw_pages_set_function")(handle, code, number1, number2, text1.c_str(),
                                                     text2.c_str(), error);
    });
}

int32_t PdfPagesModule::apClose(int32_t handle)
{
    return noting([&](pw_module_error *error) {
        return moduleEntry<decltype(&::pw_pages_close)>(pages::kModule, "pw_pages_close")(handle,
                                                                                          error);
    });
}

int32_t PdfPagesModule::abandon(int32_t handle)
{
    return noting([&](pw_module_error *error) {
        return moduleEntry<decltype(&::pw_pages_abandon)>(pages::kModule,
                                                          "pw_pages_abandon")(handle, error);
    });
}

int32_t PdfPagesModule::splitPages(int32_t handle)
{
    return noting([&](pw_module_error *error) {
        return moduleEntry<decltype(&::pw_pages_split_count)>(
            pages::kModule, "pw_pages_split_count")(handle, error);
    });
}

} // namespace pw

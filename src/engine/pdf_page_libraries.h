#pragma once
// The PDF rendering and PDF page libraries as the bindings call them: the bindings decide the
// calls, their order and their constants; these seams let a test record the calls.

#include <cstdint>
#include <string>

namespace pw {

class PdfToImageLibrary {
public:
    virtual ~PdfToImageLibrary() = default;
    virtual int32_t apOpen(const std::string &path, const std::string &text1,
                           const std::string &text2) = 0;
    virtual int32_t apSetProperty(int32_t handle, int32_t property, const std::string &text,
                                  int32_t number1, int32_t number2) = 0;
    virtual int32_t apConvertPage(int32_t handle, int32_t page) = 0;
    virtual int32_t apClose(int32_t handle) = 0;

    // Our rendering library, one for each thread; raises 48 on first use when its module
    // cannot be loaded.
    static PdfToImageLibrary &ours();
};

// Our rendering library, keeping why its last open or page failed.
class PdfRenderModule final : public PdfToImageLibrary {
public:
    int32_t apOpen(const std::string &path, const std::string &text1,
                   const std::string &text2) override;
    int32_t apSetProperty(int32_t handle, int32_t property, const std::string &text,
                          int32_t number1, int32_t number2) override;
    int32_t apConvertPage(int32_t handle, int32_t page) override;
    int32_t apClose(int32_t handle) override;

    // "" when the last open or page succeeded.
    const std::string &failure() const { return failure_; }

private:
    std::string failure_;
};

class PdfPagesLibrary {
public:
    virtual ~PdfPagesLibrary() = default;
    virtual int32_t apCreateMerge(const std::string &output) = 0;
    virtual int32_t apOpenSplit(const std::string &source) = 0;
    virtual int32_t apSetFunction(int32_t handle, int32_t code, int32_t number1, int32_t number2,
                                  const std::string &text1, const std::string &text2) = 0;
    virtual int32_t apClose(int32_t handle) = 0;

    // Our page library, one for each thread; raises 48 on first use when its module cannot be
    // loaded.
    static PdfPagesLibrary &ours();
};

// Our page library, keeping why its last call failed or added nothing.
class PdfPagesModule final : public PdfPagesLibrary {
public:
    int32_t apCreateMerge(const std::string &output) override;
    int32_t apOpenSplit(const std::string &source) override;
    int32_t apSetFunction(int32_t handle, int32_t code, int32_t number1, int32_t number2,
                          const std::string &text1, const std::string &text2) override;
    int32_t apClose(int32_t handle) override;
    // Releases the handle without writing anything.
    int32_t abandon(int32_t handle);
    // Pages of the PDF that the split `handle` opened.
    int32_t splitPages(int32_t handle);

    // "" when the last call succeeded.
    const std::string &failure() const { return failure_; }

private:
    template <typename Call> int32_t noting(Call &&call);
    std::string failure_;
};

// The entry point `symbol` of the loaded module `module`; raises 48 "Error in loading DLL"
// naming both when either is missing.
void *requiredSymbol(const char *module, const char *symbol);
template <typename Function> Function moduleEntry(const char *module, const char *symbol)
{
    return reinterpret_cast<Function>(requiredSymbol(module, symbol));
}

} // namespace pw

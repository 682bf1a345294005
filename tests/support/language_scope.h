#pragma once

#include "foundation/velt_text.h"

namespace velt::test
{
/// Puts the compiled-in texts into force at its beginning and at its end, because all tests of a
/// program share one language.
class LanguageScope
{
public:
    LanguageScope()
    {
        VeltText::Language().SetLanguage(velt::kDefaultLanguage, "");
    }

    LanguageScope(const LanguageScope&) = delete;
    LanguageScope& operator=(const LanguageScope&) = delete;

    ~LanguageScope()
    {
        VeltText::Language().SetLanguage(velt::kDefaultLanguage, "");
    }
};
} // namespace velt::test

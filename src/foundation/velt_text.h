#pragma once

#include "foundation/language_file.h"
#include "foundation/language_table.h"

#include <cstdint>
#include <string>
#include <vector>

/// A text that may be translated: an id and its compiled-in English.
///
/// Every object is static: it links itself into one process-wide list, sorted by ascending id, when
/// it is made and stays there. Reading is safe from any thread once the library is loaded.
class VeltText
{
public:
    class LanguageImpl;

    /// `defaultText` must outlive the object (a literal). An id of 0 means never translated.
    VeltText(std::int32_t id, const char* defaultText) noexcept;

    VeltText(const VeltText&) = delete;
    VeltText& operator=(const VeltText&) = delete;

    virtual ~VeltText() = default;

    virtual std::int32_t GetId() const noexcept;

    /// The text with its placeholders "%0", "%1", ... filled; see velt::FormatPositional.
    virtual std::string Format(const std::vector<std::string>& arguments) const;

    /// The translation when one is loaded and not empty, else the default text; UTF-8.
    virtual std::string GetText() const;

    /// The language that all texts share.
    static LanguageImpl& Language() noexcept;

    /// First of the registered texts and the one behind this; null at the end. Texts with the same
    /// id stand with the newest first.
    static const VeltText* First() noexcept;
    const VeltText* Next() const noexcept;

private:
    std::int32_t m_id;
    const char* m_defaultText;
    mutable const VeltText* m_next; // the list links constant objects
};

/// The current language and its translated texts.
///
/// Not locked: set the language before several threads use texts.
class VeltText::LanguageImpl final
{
public:
    /// Index of the current language in velt::kLanguages; velt::kDefaultLanguage at start.
    virtual std::uint32_t GetLanguage() const noexcept;

    /// The code of a row of the language table; null for an index past its end.
    virtual const char* GetLanguageCode(std::uint32_t index) const noexcept;

    /// The translation of an id, empty when there is none; UTF-8.
    virtual std::string Lookup(std::int32_t id) const;

    /// Loads "<directory>\<code>.txt" (the directory in UTF-8) and makes that language the current
    /// one. Does nothing when it is so already. When the file cannot be read, or the index is past
    /// the table's end, the compiled-in texts are in force afterwards. Throws std::bad_alloc only.
    virtual void SetLanguage(std::uint32_t index, const std::string& directory);

private:
    std::uint32_t m_current = velt::kDefaultLanguage;
    velt::Translations m_translations;
};

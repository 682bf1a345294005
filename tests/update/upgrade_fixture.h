#pragma once

#include "foundation/endpoints.h"
#include "foundation/wide_text.h"
#include "tests/support/com_apartment.h"
#include "tests/support/stand_in_agent.h"
#include "tests/support/trace_recorder.h"
#include "tests/update/products_key.h"
#include "update/is_upgrade_request.h"

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

namespace velt::test
{
inline const std::string kId = " {AC0EE5B0-A8FB-4D0A-AF03-2EDC518F841B}";
inline const std::string kServer = " http://" + Utf8FromWide(kUpdateHost);

/// A request, the agent that it finds, its record of products, and its traces.
struct UpgradeFixture
{
    using Lines = std::vector<std::string>;

    explicit UpgradeFixture(bool isForeground = false, const std::wstring& description = L"",
                            LONG locale = 1033)
    {
        request.SetISParameters(kProduct, L"3.0", locale, description, isForeground);
    }

    /// The product as if it had been registered earlier.
    void Register()
    {
        ProductsKey::Write(kProduct.c_str(), REG_SZ, L"3.0", 8);
    }

    /// What was traced, scopes' lines without the source; one of another level than its text should
    /// have says so.
    Lines Traced()
    {
        Lines lines;
        for (const TraceRecorder::Message& message : trace.Messages())
        {
            lines.push_back(message.level == LevelOf(message.text)
                                ? message.text
                                : "level " + std::to_string(message.level) + ": " + message.text);
        }
        return lines;
    }

    bool HasTraced(const std::string& line)
    {
        const Lines lines = Traced();
        return std::count(lines.begin(), lines.end(), line) == 1;
    }

    /// Entries and exits, failures, details.
    static std::int32_t LevelOf(const std::string& text)
    {
        if (text.ends_with(" - enter") || text.ends_with(" - return"))
        {
            return 4;
        }
        return text.starts_with("Exception thrown: ") || text.starts_with("failed: ") ? 1 : 3;
    }

    ComApartment apartment;
    ProductsKey products;
    TraceRecorder trace;
    StandInAgent agent;
    IS_upgrade_request request{nullptr};
};

/// The calls that register a product anew.
inline CallLog::Calls Registration()
{
    return {"CreateInstance", "RegisterProduct" + kId + " 3.0" + kServer};
}

/// The calls of a check up to the choice of what to start.
inline CallLog::Calls Check(LONG language = 1033)
{
    return {"SetLanguage" + kId + ' ' + std::to_string(language), "IsConnectedEx" + kId,
            "SetServerAddress" + kId + kServer};
}

/// The calls that ask for updates and messages.
inline CallLog::Calls Availability()
{
    return {"GetUpdates" + kId,  "updates.Count",  "updates gone",
            "GetMessages" + kId, "messages.Count", "messages gone"};
}

inline CallLog::Calls operator+(CallLog::Calls first, const CallLog::Calls& second)
{
    first.insert(first.end(), second.begin(), second.end());
    return first;
}
} // namespace velt::test

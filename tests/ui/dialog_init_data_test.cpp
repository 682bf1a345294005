#include "ui/dialog_init_data.h"

#include <catch.hpp>

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

using velt::ActiveXItem;
using velt::TakeInitData;

namespace
{
using Bytes = std::vector<std::byte>;

/// Writes initial data, or a part of it, byte by byte.
class Writer
{
public:
    Writer& Word(std::uint32_t value)
    {
        m_bytes.push_back(static_cast<std::byte>(value & 0xFF));
        m_bytes.push_back(static_cast<std::byte>(value >> 8 & 0xFF));
        return *this;
    }

    Writer& Double(std::uint32_t value)
    {
        return Word(value & 0xFFFF).Word(value >> 16);
    }

    Writer& Add(std::string_view bytes)
    {
        for (const char c : bytes)
        {
            m_bytes.push_back(static_cast<std::byte>(c));
        }
        return *this;
    }

    Writer& Entry(std::uint32_t id, std::uint32_t message, const Writer& content)
    {
        Word(id).Word(message).Double(static_cast<std::uint32_t>(content.m_bytes.size()));
        m_bytes.insert(m_bytes.end(), content.m_bytes.begin(), content.m_bytes.end());
        return *this;
    }

    const Bytes& Written() const
    {
        return m_bytes;
    }

private:
    Bytes m_bytes;
};

Bytes BytesOf(std::string_view text)
{
    return Writer().Add(text).Written();
}

/// What two controls have afterwards; the first has creation data in its template.
std::vector<Bytes> DataAfter(const Bytes& initData)
{
    const Bytes creationData = BytesOf("template");
    ActiveXItem items[] = {{u"{}", 0, 0, 201, 0, {}, creationData}, {u"{}", 0, 0, 202, 0, {}, {}}};
    TakeInitData(initData, items);
    return {{items[0].data.begin(), items[0].data.end()},
            {items[1].data.begin(), items[1].data.end()}};
}
} // namespace

TEST_CASE("TakeInitData: a control gets what was written for it, without key and binding", "[ui]")
{
    const Writer plain = Writer().Double(0).Add("plain");
    const Writer bound = Writer().Double(1).Add("kk").Double(4 + 6).Add("bindin").Add("bound");
    CHECK(DataAfter(Writer().Entry(202, 0x376, plain).Word(0).Written()) ==
          std::vector<Bytes>{BytesOf("template"), BytesOf("plain")});
    CHECK(DataAfter(Writer().Entry(202, 0x37A, bound).Entry(201, 0x376, plain).Written()) ==
          std::vector<Bytes>{BytesOf("plain"), BytesOf("bound")});
    const std::string_view key("k\0e\0y\0", 6);
    CHECK(DataAfter(Writer()
                        .Entry(201, 0x376, Writer().Double(3).Add(key).Add("keyed"))
                        .Word(0)
                        .Written()) == std::vector<Bytes>{BytesOf("keyed"), {}});
}

TEST_CASE("TakeInitData: other messages, other numbers and what follows the end are passed over",
          "[ui]")
{
    const Writer content = Writer().Double(0).Add("data");
    const std::vector<Bytes> before = {BytesOf("template"), {}};
    CHECK(DataAfter({}) == before);
    for (const std::uint32_t message : {0x180u, 0x143u, 0x377u, 0x378u, 0x37Bu, 0u})
    {
        CAPTURE(message);
        CHECK(DataAfter(Writer().Entry(201, message, content).Word(0).Written()) == before);
    }
    CHECK(DataAfter(Writer().Entry(999, 0x376, content).Word(0).Written()) == before);
    CHECK(DataAfter(Writer().Word(0).Entry(201, 0x376, content).Written()) == before);
    CHECK(DataAfter(Writer().Entry(201, 0x376, Writer().Double(0)).Word(0).Written()) == before);
    // An entry of another kind for the same control does not hide its data.
    CHECK(DataAfter(Writer()
                        .Entry(201, 0x180, Writer().Add("list"))
                        .Entry(201, 0x376, content)
                        .Written()) == std::vector<Bytes>{BytesOf("data"), {}});
}

TEST_CASE("TakeInitData: an entry that is cut short gives nothing, and nothing after it counts",
          "[ui]")
{
    const std::vector<Bytes> before = {BytesOf("template"), {}};
    const Bytes whole =
        Writer().Entry(201, 0x37A, Writer().Double(1).Add("kk").Double(4).Add("data")).Written();
    REQUIRE(DataAfter(whole)[0] == BytesOf("data"));
    for (std::size_t length = 0; length < whole.size(); ++length)
    {
        CAPTURE(length);
        CHECK(DataAfter(Bytes(whole.begin(),
                              whole.begin() + static_cast<std::ptrdiff_t>(length))) == before);
    }
    // Lengths inside an entry that lead out of it.
    for (const std::uint32_t length : {5u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu})
    {
        CAPTURE(length);
        const Writer key = Writer().Double(length).Add("data");
        const Writer block = Writer().Double(0).Double(length == 5 ? 9 : length).Add("data");
        CHECK(DataAfter(Writer().Entry(201, 0x376, key).Written()) == before);
        CHECK(DataAfter(Writer().Entry(201, 0x37A, block).Written()) == before);
    }
    for (const std::uint32_t length : {0u, 3u})
    {
        const Writer block = Writer().Double(0).Double(length).Add("data"); // less than itself
        CHECK(DataAfter(Writer().Entry(201, 0x37A, block).Written()) == before);
    }
}

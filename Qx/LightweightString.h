#pragma once

#include "Qx/Ptr.h"
#include "platform/Allocator.h"
#include "platform/OS.h"

#include <algorithm>
#include <clocale>
#include <compare>
#include <cstdint>
#include <cstring>
#include <cwctype>
#include <locale.h>
#include <new>
#include <string>
#include <string_view>

namespace Qx {

/// Folds one character for case-insensitive comparison, independently of the process's locale: by Unicode's
/// simple lower-case mapping for wide characters, by ASCII for the bytes of UTF-8.
inline wchar_t foldCase(wchar_t c)
{
    static const locale_t unicode = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
    if (c >= 0 && c < 0x80) {
        return c >= L'A' && c <= L'Z' ? static_cast<wchar_t>(c + (L'a' - L'A')) : c;
    }
    return unicode != nullptr ? static_cast<wchar_t>(towlower_l(static_cast<wint_t>(c), unicode)) : c;
}

inline char foldCase(char c)
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
}

/// A shared, reference-counted, null-terminated string: narrow (UTF-8) or wide (32-bit code units).
///
/// Copies share one buffer. A write happens in place if this string is the buffer's only owner and the text
/// fits; otherwise it allocates a new buffer, so other owners never see a change. A string without a buffer
/// is the null string. It reads as the empty string and compares equal to it.
///
/// The length is limited to maxLength characters. A write that would exceed it, or that cannot allocate
/// memory, leaves the string unchanged.
///
/// Different strings that share a buffer may be used by different threads. One string object is not
/// synchronised.
template <class CharT>
class LightweightString
{
public:
    using View = std::basic_string_view<CharT>; ///< a text that somebody else owns

    /// The capacity, the next power of two, must fit 32 bits.
    static constexpr std::uint32_t maxLength = 0x7fffffffU;

    LightweightString() noexcept = default;

    /// A null pointer or an empty text yields the null string.
    LightweightString(const CharT* s) { assign(s); } // NOLINT(google-explicit-constructor): texts are strings

    explicit LightweightString(View text) { append(text.data(), text.size()); } ///< Copies the text.

    LightweightString& operator=(const CharT* s) { return assign(s); } ///< As assign().

    /// Replaces the text by a copy of a null-terminated one. A null pointer yields the null string.
    LightweightString& assign(const CharT* s)
    {
        const std::size_t n = lengthOf(s);
        if (n == 0) {
            buffer_.reset();
        } else if (fitsInPlace(n)) {
            std::char_traits<CharT>::move(buffer_->text, s, n);
            setLength(static_cast<std::uint32_t>(n));
        } else if (BufferPtr fresh = makeBuffer(n)) {
            std::char_traits<CharT>::copy(fresh->text, s, n);
            buffer_ = fresh;
        }
        return *this;
    }

    /// Prepares the string for exactly n characters, which the caller then writes to data(). The old text is
    /// kept only if the buffer is, that is if this string is its only owner and n is less than its capacity.
    /// Returns false if n exceeds maxLength or out of memory; the string is then unchanged.
    bool resizeFor(std::size_t n)
    {
        if (n == 0) {
            buffer_.reset();
            return true;
        }
        if (fitsInPlace(n)) {
            setLength(static_cast<std::uint32_t>(n));
            return true;
        }
        BufferPtr fresh = makeBuffer(n);
        if (!fresh) {
            return false;
        }
        buffer_ = fresh;
        return true;
    }

    /// Appends n characters. `s` may point into this string.
    LightweightString& append(const CharT* s, std::size_t n)
    {
        if (s == nullptr || n == 0) {
            return *this;
        }
        const std::size_t oldLength = length();
        const BufferPtr old = fitsInPlace(oldLength + n) ? BufferPtr() : buffer_; // keeps the old text alive
        if (n > maxLength || !resizeFor(oldLength + n)) {
            return *this;
        }
        if (old) {
            std::char_traits<CharT>::copy(buffer_->text, old->text, oldLength);
        }
        std::char_traits<CharT>::move(buffer_->text + oldLength, s, n);
        return *this;
    }

    /// Appends a text. A null pointer appends nothing.
    LightweightString& operator+=(const CharT* s) { return append(s, lengthOf(s)); }
    /// Appends a text.
    LightweightString& operator+=(const LightweightString& s) { return append(s.c_str(), s.length()); }

    /// Returns both texts, one after the other.
    LightweightString operator+(const CharT* s) const { return concatenated(s, lengthOf(s)); }
    /// Returns both texts, one after the other.
    LightweightString operator+(const LightweightString& s) const
    {
        return concatenated(s.c_str(), s.length());
    }

    /// Never null: the null string yields a static empty text.
    const CharT* c_str() const noexcept { return buffer_ ? buffer_->text : emptyText; }
    std::uint32_t length() const noexcept { return buffer_ ? buffer_->length : 0; } ///< in characters

    /// Returns the number of characters that fit the buffer, including the terminator; 0 without a buffer.
    std::uint32_t capacity() const noexcept { return buffer_ ? buffer_->capacity : 0; }
    bool empty() const noexcept { return length() == 0; }          ///< Whether the text has no characters.
    View view() const noexcept { return View(c_str(), length()); } ///< valid until the string changes

    /// Returns the characters for writing after resizeFor(), or null for the null string. The buffer must not
    /// be shared.
    CharT* data() noexcept { return buffer_ ? buffer_->text : nullptr; }

    /// Compares character by character with foldCase().
    bool equalsIgnoringCase(const LightweightString& other) const
    {
        return std::equal(view().begin(), view().end(), other.view().begin(), other.view().end(),
                          [](CharT a, CharT b) { return foldCase(a) == foldCase(b); });
    }

    /// Case-sensitive comparison by code unit; null equals empty.
    friend bool operator==(const LightweightString& a, const LightweightString& b) noexcept
    {
        return a.view() == b.view();
    }
    /// Compares code unit by code unit.
    friend bool operator<(const LightweightString& a, const LightweightString& b) noexcept
    {
        return a.view() < b.view();
    }

private:
    struct Buffer
    {
        CharT* text;
        std::uint32_t length;
        std::uint32_t capacity;
        std::uint32_t count;

        std::uint32_t& referenceCount() noexcept { return count; }
    };

    struct BufferCounting
    {
        static std::uint32_t* attach(Buffer* buffer) noexcept { return &buffer->count; }
        static void destroy(std::uint32_t*, Buffer* buffer) noexcept { OS().allocator().deallocate(buffer); }
    };

    using BufferPtr = Ptr<Buffer, BufferCounting>;

    static std::size_t lengthOf(const CharT* s) noexcept
    {
        return s != nullptr ? std::char_traits<CharT>::length(s) : 0;
    }

    /// Returns the smallest power of two that is greater than n.
    static std::uint32_t capacityFor(std::uint32_t n) noexcept
    {
        std::uint32_t capacity = 1;
        while (capacity <= n) {
            capacity *= 2;
        }
        return capacity;
    }

    bool fitsInPlace(std::size_t n) const noexcept { return buffer_.isSoleOwner() && n < buffer_->capacity; }

    void setLength(std::uint32_t n) noexcept
    {
        buffer_->length = n;
        buffer_->text[n] = CharT();
    }

    static BufferPtr makeBuffer(std::size_t n)
    {
        if (n > maxLength) {
            return {};
        }
        const std::uint32_t capacity = capacityFor(static_cast<std::uint32_t>(n));
        const std::size_t bytes = sizeof(Buffer) + capacity * sizeof(CharT);
        void* block = OS().allocator().allocate(bytes, alignof(Buffer));
        if (block == nullptr) {
            return {};
        }
        auto* text = reinterpret_cast<CharT*>(static_cast<std::byte*>(block) + sizeof(Buffer));
        text[n] = CharT();
        return BufferPtr(new (block) Buffer{text, static_cast<std::uint32_t>(n), capacity, 0});
    }

    LightweightString concatenated(const CharT* s, std::size_t n) const
    {
        LightweightString result;
        if (result.resizeFor(length() + n) && length() + n > 0) {
            std::char_traits<CharT>::copy(result.data(), c_str(), length());
            std::char_traits<CharT>::copy(result.data() + length(), s, n);
        }
        return result;
    }

    static constexpr CharT emptyText[1] = {};

    BufferPtr buffer_;
};

} // namespace Qx

using Qx::LightweightString;

// The text of a record's fixed-size char field. The camera stack normally leaves a terminator in
// the field, but a field filled to its last byte has none; reading it "up to the terminator"
// would run into the next fields and past the record. Everything the library takes from such a
// field (a rate-limit key, a parameter for a service) goes through FieldText, which never reads
// beyond the field: a terminated field gives its text as it stands, an unterminated one the whole
// field.
#pragma once

#include <cstddef>
#include <cstring>
#include <string>
#include <string_view>

namespace orv {

class FieldText {
  public:
    FieldText(const char* field, size_t size) : mText(field, strnlen(field, size)), mSize(size) {}
    template <size_t N>
    FieldText(const char (&field)[N]) : FieldText(field, N) {}

    std::string_view view() const { return mText; }
    std::string str() const { return std::string(mText); }
    // The field holds its own terminator, so its address can be handed out as a C string.
    bool terminated() const { return mText.size() < mSize; }

  private:
    std::string_view mText;
    size_t mSize;
};

// C strings for the services, which read a text at its address up to the terminator, and may do
// so until the event is sent. A terminated field is handed out in place, as always; only a field
// without a terminator is copied, with one, into storage that lives as long as this object, so
// the copies must not outlive it (keep it beside the parameters until the event is sent).
// `Capacity` must hold every text copied plus a terminator each. The size of the record does for
// any of ours: besides its texts a record holds its vtable pointer and numbers, more bytes than it
// has text fields.
template <size_t Capacity>
class TerminatedTexts {
  public:
    TerminatedTexts() = default;
    TerminatedTexts(const TerminatedTexts&) = delete;
    TerminatedTexts& operator=(const TerminatedTexts&) = delete;

    const char* cString(FieldText text) {
        if (text.terminated()) return text.view().data();
        const std::string_view bytes = text.view();
        // Sized by the caller for the texts of one record; a shortfall would be a sizing mistake,
        // and even then nothing is read past the field.
        if (bytes.size() >= Capacity - mUsed) return "";
        char* copy = mBytes + mUsed;
        memcpy(copy, bytes.data(), bytes.size());
        copy[bytes.size()] = '\0';
        mUsed += bytes.size() + 1;
        return copy;
    }

  private:
    char mBytes[Capacity];
    size_t mUsed = 0;
};

}  // namespace orv

#ifndef ZELQCOOD_BLOCK_PACKEDFIELDS_H
#define ZELQCOOD_BLOCK_PACKEDFIELDS_H

#include <cstddef>
#include <cstring>

/// One fixed field of a block body: its type and its offset. A class names its fields once, as
/// constants of this type, and writes and reads them through the same names.
template <class Value, std::size_t Offset>
struct PackedField {
    using Type = Value;
    static constexpr std::size_t offset = Offset;
    static constexpr std::size_t end = Offset + sizeof(Value);
};

/// Stores a field in host byte order, at any alignment.
template <class Field>
void storeField(unsigned char* body, Field, typename Field::Type value) {
    std::memcpy(body + Field::offset, &value, sizeof value);
}

template <class Field>
typename Field::Type loadField(unsigned char const* body, Field) {
    typename Field::Type value;
    std::memcpy(&value, body + Field::offset, sizeof value);
    return value;
}

/// A field of characters: as many as fit, then zero bytes, at least one.
template <std::size_t Offset, std::size_t Width>
struct PackedText {
    static constexpr std::size_t offset = Offset;
    static constexpr std::size_t width = Width;
    static constexpr std::size_t end = Offset + Width;
};

/// A body of fixed fields under construction; bytes that no field covers are zero.
template <std::size_t Size>
class PackedFields {
public:
    static constexpr std::size_t size = Size;

    template <class Field>
    PackedFields& put(Field field, typename Field::Type value) {
        static_assert(Field::end <= Size, "the field lies outside the body");
        storeField(bytes_, field, value);
        return *this;
    }

    template <std::size_t Offset, std::size_t Width>
    PackedFields& put(PackedText<Offset, Width> field, char const* text) {
        static_assert(field.end <= Size, "the field lies outside the body");
        std::memcpy(bytes_ + Offset, text, strnlen(text, Width - 1));
        return *this;
    }

    unsigned char const* bytes() const { return bytes_; }

private:
    unsigned char bytes_[Size] = {};
};

#endif

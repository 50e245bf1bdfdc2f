#pragma once

#include "container/mp4/MP4BoxTree.h"

#include <QByteArray>
#include <QList>
#include <QString>

#include <cstdint>
#include <optional>

namespace folivox {

// Reads and edits the iTunes items of a `moov` (moov/udta/meta/ilst). Each
// setter replaces every earlier copy of its item, so writing the same tag
// twice leaves one item. Items are `[size][type]` boxes holding `data`
// children: `[size]["data"][type code][locale][value]`.
class IlstEditor {
public:
    // Type codes of a `data` box.
    enum DataType : std::uint32_t {
        binary = 0,
        utf8 = 1,
        jpeg = 13,
        png = 14,
        signedInteger = 21,
        bmp = 27,
    };

    struct Image {
        std::uint32_t dataType = jpeg;
        QByteArray bytes;
    };

    // A number and a total, as `trkn` and `disk` hold them; 0 means unset.
    struct NumberPair {
        int number = 0;
        int total = 0;
    };

    explicit IlstEditor(MP4BoxTree::Node& moov);

    // Text item (code 1). An empty value removes the item.
    void setText(std::uint32_t type, const QString& value);
    std::optional<QString> text(std::uint32_t type) const;

    // One-byte signed integer item (code 21), as `stik`, `cpil`, `pgap` hold.
    void setInteger8(std::uint32_t type, int value);
    std::optional<int> integer(std::uint32_t type) const;

    // `trkn` (8-byte payload) or `disk` (6-byte payload). Fields left empty
    // keep their present value.
    void setNumberPair(std::uint32_t type, std::optional<int> number, std::optional<int> total);
    std::optional<NumberPair> numberPair(std::uint32_t type) const;

    // Cover art in `covr`: one item holding one `data` child per image.
    QList<Image> covers() const;
    void addCover(const Image& image);
    // Removes every image, or only the one at index; the item goes with its
    // last image. Returns how many images were removed.
    int removeCovers(std::optional<int> index = std::nullopt);

    // Removes every item of a type; returns how many went.
    int remove(std::uint32_t type);
    // How many items of a type there are.
    int count(std::uint32_t type) const;

    // The value of a freeform `----` item with this name (mean
    // "com.apple.iTunes"), or nothing.
    std::optional<QString> freeform(const QString& name) const;

    // The `data` box payload for a value: type code, zero locale, bytes.
    static QByteArray dataPayload(std::uint32_t dataType, const QByteArray& value);
    // Detects JPEG, PNG or BMP from the first bytes; nothing for other data.
    static std::optional<std::uint32_t> imageDataType(const QByteArray& bytes);

private:
    const MP4BoxTree::Node* ilst() const;
    MP4BoxTree::Node& ensureIlst();
    void setSingle(std::uint32_t type, std::uint32_t dataType, const QByteArray& value);
    // The first `data` child's payload (type code + locale + value) of an item.
    std::optional<QByteArray> firstData(std::uint32_t type) const;

    MP4BoxTree::Node& moov_;
};

} // namespace folivox

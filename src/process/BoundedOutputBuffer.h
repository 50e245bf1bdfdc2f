#pragma once

#include <QByteArray>

namespace folivox {

// Collects a child's output within a fixed size. The first `headSize` bytes
// are kept (ffmpeg states its inputs and opening errors there) and so are the
// most recent bytes (where the final errors are); when the output is larger
// than the limit the middle gives way and a one-line marker says how much.
class BoundedOutputBuffer {
public:
    BoundedOutputBuffer(qsizetype limit, qsizetype headSize);

    void append(const QByteArray& bytes);

    // The kept output: never more than `limit` bytes.
    QByteArray contents() const;
    // Bytes appended in total, and bytes that gave way.
    qint64 totalBytes() const { return total_; }
    qint64 droppedBytes() const;

private:
    QByteArray marker() const;

    qsizetype limit_;
    qsizetype headSize_;
    QByteArray head_;
    // Grows to twice the tail budget before it is trimmed, so that a steady
    // stream of small chunks costs amortised constant time per byte.
    QByteArray tail_;
    qint64 total_ = 0;
};

} // namespace folivox

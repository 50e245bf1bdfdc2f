#include "process/BoundedOutputBuffer.h"

#include <algorithm>

namespace folivox {

BoundedOutputBuffer::BoundedOutputBuffer(qsizetype limit, qsizetype headSize)
    : limit_(limit), headSize_(std::clamp<qsizetype>(headSize, 0, limit / 2))
{
}

void BoundedOutputBuffer::append(const QByteArray& bytes)
{
    total_ += bytes.size();
    qsizetype from = 0;
    if (head_.size() < headSize_) {
        from = std::min(bytes.size(), headSize_ - head_.size());
        head_.append(bytes.left(from));
    }
    if (from >= bytes.size())
        return;
    tail_.append(bytes.constData() + from, bytes.size() - from);
    const qsizetype budget = limit_ - headSize_;
    if (tail_.size() > 2 * budget)
        tail_.remove(0, tail_.size() - budget);
}

qint64 BoundedOutputBuffer::droppedBytes() const
{
    if (total_ <= limit_)
        return 0;
    return total_ - head_.size() - (limit_ - head_.size() - marker().size());
}

QByteArray BoundedOutputBuffer::marker() const
{
    // The marker's own length comes out of the tail, so the number it states
    // depends on its length; settle it in two passes.
    qint64 omitted = total_ - limit_;
    QByteArray text;
    for (int pass = 0; pass < 3; ++pass) {
        text = "\n[... " + QByteArray::number(omitted) + " bytes omitted ...]\n";
        const qint64 next = total_ - limit_ + text.size();
        if (next == omitted)
            break;
        omitted = next;
    }
    return text;
}

QByteArray BoundedOutputBuffer::contents() const
{
    if (total_ <= limit_)
        return head_ + tail_;
    const QByteArray m = marker();
    const qsizetype keep = std::max<qsizetype>(0, limit_ - head_.size() - m.size());
    return head_ + m + tail_.right(keep);
}

} // namespace folivox

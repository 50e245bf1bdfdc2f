#include "chapters/SortPart.h"

#include <climits>

namespace folivox {

QList<SortPart> SortPart::split(const QString& name)
{
    QList<SortPart> parts;
    qsizetype i = 0;
    while (i < name.size()) {
        const bool digit = name[i].unicode() >= u'0' && name[i].unicode() <= u'9';
        qsizetype j = i;
        while (j < name.size() && (name[j].unicode() >= u'0' && name[j].unicode() <= u'9') == digit)
            ++j;
        const QString piece = name.mid(i, j - i);
        if (digit) {
            // Very long digit runs saturate rather than overflow.
            bool ok = false;
            long long v = piece.toLongLong(&ok);
            parts.append(SortPart{Kind::number, ok ? v : LLONG_MAX, piece});
        } else {
            parts.append(SortPart{Kind::text, 0, piece});
        }
        i = j;
    }
    return parts;
}

int SortPart::compare(const QString& a, const QString& b)
{
    const QList<SortPart> pa = split(a);
    const QList<SortPart> pb = split(b);
    for (qsizetype i = 0; i < pa.size() && i < pb.size(); ++i) {
        const SortPart& x = pa[i];
        const SortPart& y = pb[i];
        if (x.kind != y.kind)
            return x.kind == Kind::number ? -1 : 1;
        if (x.kind == Kind::number) {
            if (x.number != y.number)
                return x.number < y.number ? -1 : 1;
            continue;
        }
        const int c = QString::compare(x.text, y.text, Qt::CaseInsensitive);
        if (c != 0)
            return c < 0 ? -1 : 1;
    }
    if (pa.size() != pb.size())
        return pa.size() < pb.size() ? -1 : 1;
    return 0;
}

} // namespace folivox

#pragma once

#include <QSet>
#include <QUuid>

namespace folivox {

// What the chapter list shows beyond the chapters themselves: which of them
// are selected. Used on one thread.
class ChapterViewModel {
public:
    const QSet<QUuid>& selection() const { return selection_; }
    void select(const QUuid& bookmarkID) { selection_.insert(bookmarkID); }
    void clearSelection() { selection_.clear(); }

private:
    QSet<QUuid> selection_;
};

} // namespace folivox

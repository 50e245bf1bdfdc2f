#include "app/views/Ui.h"

#include "platform/L10n.h"

#include <QLabel>

namespace folivox {

void Ui::setAccessibleName(QWidget* widget, const char* key, const char* text)
{
    widget->setAccessibleName(L10n::text(key, text));
}

QWidget* Ui::heading(const QString& text, QWidget* parent)
{
    auto* label = new QLabel(text, parent);
    QFont f = label->font();
    f.setBold(true);
    f.setPointSizeF(f.pointSizeF() * 1.1);
    label->setFont(f);
    return label;
}

} // namespace folivox

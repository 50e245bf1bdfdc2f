#include "app/views/Ui.h"

#include "platform/L10n.h"

#include <QFrame>
#include <QHBoxLayout>
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

QWidget* Ui::banner(QWidget* parent, const QColor& color, QLabel*& label)
{
    auto* bar = new QFrame(parent);
    bar->setAutoFillBackground(true);
    QPalette pal = bar->palette();
    pal.setColor(QPalette::Window, color);
    pal.setColor(QPalette::WindowText, QColor(30, 30, 30));
    bar->setPalette(pal);
    bar->setFrameShape(QFrame::StyledPanel);
    auto* row = new QHBoxLayout(bar);
    row->setContentsMargins(10, 6, 10, 6);
    label = new QLabel(bar);
    label->setWordWrap(true);
    label->setTextInteractionFlags(Qt::TextSelectableByMouse);
    row->addWidget(label, 1);
    return bar;
}

} // namespace folivox

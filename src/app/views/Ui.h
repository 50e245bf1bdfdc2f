#pragma once

#include <QString>

class QColor;
class QLabel;
class QWidget;

namespace folivox {

// Small helpers the views share.
class Ui {
public:
    // Gives a control its accessible name (a localised text) and returns it.
    template<class W>
    static W* named(W* widget, const char* key, const char* text)
    {
        setAccessibleName(widget, key, text);
        return widget;
    }
    static void setAccessibleName(QWidget* widget, const char* key, const char* text);
    // A bold section heading.
    static QWidget* heading(const QString& text, QWidget* parent = nullptr);
    // A coloured strip across a view for a message, with its label (buttons
    // go into its layout after the label).
    static QWidget* banner(QWidget* parent, const QColor& color, QLabel*& label);
};

} // namespace folivox

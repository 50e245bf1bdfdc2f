#pragma once

#include <QByteArray>
#include <QLabel>
#include <QUrl>

namespace folivox {

// The cover as a picture that takes an image dropped on it (a file, or image
// data from another program) or pasted into it (Ctrl+V with the well in
// focus). It only shows and hands on images; the book keeps them.
class CoverWell : public QLabel {
    Q_OBJECT
public:
    explicit CoverWell(QWidget* parent = nullptr);

    void setImage(const QByteArray& bytes);
    // Reads an image from the clipboard; false when it holds none.
    bool paste();
    // Reads an image file; an error text naming the file when it is not one.
    static QByteArray readImageFile(const QString& path, QString& error);

Q_SIGNALS:
    void imageGiven(const QByteArray& bytes, const QUrl& source);
    void problem(const QString& text);

protected:
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dropEvent(QDropEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    void showImage();
    QByteArray bytes_;
};

} // namespace folivox

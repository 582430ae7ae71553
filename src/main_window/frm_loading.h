#pragma once

#include "c_ani_cursor.h"

#include <QDialog>
#include <QPixmap>
#include <QString>

#include <cstdint>
#include <memory>

class QTimer;

namespace pw {

// Stands over the main window while a search fills the catalogue: a turning hourglass and
// the number of hits so far. The caller closes it when the search ends. Its timer only
// fires when the search lets events through, so the hourglass moves with the search.
class frmLoading : public QDialog {
    Q_OBJECT
public:
    // A surface that keeps what is printed on it, with a print position that clearing
    // puts back at the top left corner.
    class PictureBox : public QWidget {
    public:
        explicit PictureBox(QWidget *parent);

        int CurrentX() const { return currentX_; }
        void CurrentX(int x) { currentX_ = x; }
        int CurrentY() const { return currentY_; }
        void CurrentY(int y) { currentY_ = y; }
        int ScaleWidth() const { return width(); }
        int ScaleHeight() const { return height(); }
        int TextWidth(const QString &text) const;
        int TextHeight(const QString &text) const;

        void Cls();
        // Prints at the pen, then moves the pen to the start of the next line.
        void Print(const QString &text);
        // What has been printed since the last clearing, one line per Print.
        const QString &Text() const { return text_; }

    protected:
        void paintEvent(QPaintEvent *event) override;
        void resizeEvent(QResizeEvent *event) override;

    private:
        QPixmap surface_;
        QString text_;
        int currentX_ = 0;
        int currentY_ = 0;
    };

    // Raises what loading the hourglass raises; the search's own handling deals with it.
    explicit frmLoading(QWidget *parent);
    ~frmLoading() override;

    PictureBox *pnlStatus;
    QTimer *Timer1;
    // The form's background as a classic colour value: button face, like every dialog.
    int32_t BackColor = static_cast<int32_t>(0x8000000F);

    void Form_Load();
    void Form_Paint(QPainter &painter);
    void Timer1_Timer();
    void UpdateStatus(int32_t count);

    // The hourglass, made at its first use and kept for the form's life.
    cAniCursor &AniCursor();

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    // What the timer draws outside a paint stays here until the window shows it.
    QPixmap formSurface_;
    std::unique_ptr<cAniCursor> aniCursor_;
};

} // namespace pw

#include "frm_loading.h"

#include "core/globals.h"

#include <QFontMetrics>
#include <QPainter>
#include <QTimer>

namespace pw {

namespace {

constexpr int HourglassLeft = 16;
constexpr int HourglassTop = 16;
constexpr int HourglassSide = 32;
constexpr int StatusLeft = HourglassLeft + HourglassSide + 16;

QPixmap blankSurface(const QWidget &widget)
{
    const qreal ratio = widget.devicePixelRatioF();
    QPixmap surface(widget.size() * ratio);
    surface.setDevicePixelRatio(ratio);
    surface.fill(widget.palette().color(widget.backgroundRole()));
    return surface;
}

} // namespace

frmLoading::PictureBox::PictureBox(QWidget *parent) : QWidget(parent)
{
    setAttribute(Qt::WA_OpaquePaintEvent);
}

int frmLoading::PictureBox::TextWidth(const QString &text) const
{
    return QFontMetrics(font()).horizontalAdvance(text);
}

int frmLoading::PictureBox::TextHeight(const QString &) const
{
    return QFontMetrics(font()).height();
}

void frmLoading::PictureBox::Cls()
{
    surface_ = blankSurface(*this);
    text_.clear();
    currentX_ = 0;
    currentY_ = 0;
    update();
}

void frmLoading::PictureBox::Print(const QString &text)
{
    if (surface_.isNull())
        surface_ = blankSurface(*this);
    {
        QPainter painter(&surface_);
        painter.setFont(font());
        painter.setPen(palette().color(foregroundRole()));
        painter.drawText(QRect(currentX_, currentY_, width() * 4, TextHeight(text)),
                         Qt::AlignLeft | Qt::AlignTop | Qt::TextSingleLine, text);
    }
    if (!text_.isEmpty())
        text_ += '\n';
    text_ += text;
    currentX_ = 0;
    currentY_ += TextHeight(text);
    update();
}

void frmLoading::PictureBox::paintEvent(QPaintEvent *)
{
    if (surface_.isNull())
        surface_ = blankSurface(*this);
    QPainter painter(this);
    painter.drawPixmap(0, 0, surface_);
}

void frmLoading::PictureBox::resizeEvent(QResizeEvent *event)
{
    // A resize keeps what was printed, as far as it still fits.
    QPixmap old = surface_;
    surface_ = blankSurface(*this);
    if (!old.isNull()) {
        QPainter painter(&surface_);
        painter.drawPixmap(0, 0, old);
    }
    QWidget::resizeEvent(event);
}

frmLoading::frmLoading(QWidget *parent)
    : QDialog(parent, Qt::Dialog | Qt::CustomizeWindowHint | Qt::WindowTitleHint),
      pnlStatus(new PictureBox(this)), Timer1(new QTimer(this))
{
    setWindowTitle(AppTitle);
    setModal(false);
    QFont font("Arial");
    font.setStyleHint(QFont::SansSerif);
    setFont(font);

    // The status line sits beside the hourglass with its text level with the glass's
    // middle; the panel prints at its top, so the panel starts where the line should.
    const int lineHeight = QFontMetrics(font).height();
    const int statusTop = HourglassTop + (HourglassSide - lineHeight) / 2;
    setFixedSize(320, HourglassTop * 2 + HourglassSide);
    pnlStatus->setGeometry(StatusLeft, statusTop, width() - StatusLeft - 8,
                           HourglassTop + HourglassSide - statusTop);
    formSurface_ = blankSurface(*this);

    Timer1->setInterval(100);
    connect(Timer1, &QTimer::timeout, this, &frmLoading::Timer1_Timer);
    Form_Load();
    Timer1->start();
}

frmLoading::~frmLoading() = default;

cAniCursor &frmLoading::AniCursor()
{
    if (!aniCursor_)
        aniCursor_ = std::make_unique<cAniCursor>();
    return *aniCursor_;
}

void frmLoading::Form_Load()
{
    AniCursor().LoadFromResource(101, false, 0, false);
    UpdateStatus(0);
}

void frmLoading::Form_Paint(QPainter &painter)
{
    AniCursor().Draw(painter, HourglassLeft, HourglassTop, 0, 0, cAniCursor::NoBackground);
}

void frmLoading::Timer1_Timer()
{
    AniCursor().Step();
    {
        QPainter painter(&formSurface_);
        AniCursor().Draw(painter, HourglassLeft, HourglassTop, 0, 0, BackColor);
    }
    update(HourglassLeft, HourglassTop, HourglassSide, HourglassSide);
}

void frmLoading::UpdateStatus(int32_t count)
{
    const QString text = "Please wait.Loading...files (" + QString::number(count) + ")";
    // The pen is set to centre the line, but clearing sends it back to the top left
    // corner; the line has always been printed there and users know it so.
    pnlStatus->CurrentX((pnlStatus->ScaleWidth() - pnlStatus->TextWidth(text)) / 2);
    pnlStatus->CurrentY((pnlStatus->ScaleHeight() - pnlStatus->TextHeight(text)) / 2);
    pnlStatus->Cls();
    pnlStatus->Print(text);
}

void frmLoading::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.drawPixmap(0, 0, formSurface_);
    Form_Paint(painter);
}

} // namespace pw

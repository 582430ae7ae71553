#include "conversion_dialog.h"

#include "core/app_context.h"

#include <QApplication>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLineEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QStyle>
#include <QStyleFactory>
#include <QVBoxLayout>

namespace pw {

ConversionDialog::ConversionDialog(AppContext &context, const QString &caption, QWidget *parent)
    : QDialog(parent), context_(context)
{
    setWindowTitle(caption);
    setWindowFlags(windowFlags() & ~Qt::WindowContextHelpButtonHint);
}

void ConversionDialog::showEvent(QShowEvent *event)
{
    if (!loaded_) {
        loaded_ = true;
        Form_Load();
    }
    QDialog::showEvent(event);
}

void ConversionDialog::browseInto(QLineEdit *folder, int flags)
{
    const QString chosen = context_.ui.BrowseForFolder("Set Folder", folder->text(), flags);
    if (!chosen.isEmpty())
        folder->setText(chosen);
}

QPushButton *ConversionDialog::browseButton(QWidget *parent)
{
    auto *button = new QPushButton("...", parent);
    button->setFixedWidth(button->fontMetrics().horizontalAdvance("....") + 16);
    return button;
}

QGroupBox *ConversionDialog::progressFrame(QProgressBar *&bar)
{
    auto *frame = new QGroupBox("Proccessing", this);
    bar = new QProgressBar(frame);
    // The classic bar of blocks, over its own background. Qt hands the painting of larger
    // shapes to its thread pool, and both Fusion's striped bar and the frame behind a
    // transparent bar are such shapes: repainted at every file, they took cores from the
    // conversion itself.
    if (QStyle *blocks = QStyleFactory::create("Windows")) {
        blocks->setParent(bar);
        bar->setStyle(blocks);
    }
    bar->setAutoFillBackground(true);
    (new QVBoxLayout(frame))->addWidget(bar);
    return frame;
}

QGroupBox *ConversionDialog::buttonFrame(QPushButton *&run, const QString &runCaption,
                                         QPushButton *&cancel)
{
    auto *frame = new QGroupBox(this);
    run = new QPushButton(runCaption, frame);
    cancel = new QPushButton("&Cancel", frame);
    auto *layout = new QHBoxLayout(frame);
    layout->addStretch();
    layout->addWidget(run);
    layout->addWidget(cancel);
    connect(cancel, &QPushButton::clicked, this, &QDialog::reject);
    return frame;
}

void ConversionDialog::setBusyCursor(bool busy)
{
    if (busy)
        QApplication::setOverrideCursor(Qt::WaitCursor);
    else
        QApplication::restoreOverrideCursor();
}

} // namespace pw

#include "conversion_dialog.h"

#include "core/app_context.h"

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
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

ConversionDialog::~ConversionDialog()
{
    setBusyCursor(false);
}

void ConversionDialog::showEvent(QShowEvent *event)
{
    if (!loaded_) {
        loaded_ = true;
        Form_Load();
    }
    QDialog::showEvent(event);
}

void ConversionDialog::browseInto(QLineEdit *folder, const QString &title, int flags)
{
    const QString chosen = context_.ui.BrowseForFolder(title, folder->text(), flags);
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
                                         QPushButton *&cancel, const QString &cancelCaption)
{
    auto *frame = new QGroupBox(this);
    run = new QPushButton(runCaption, frame);
    run->setDefault(true);
    cancel = new QPushButton(cancelCaption, frame);
    auto *layout = new QHBoxLayout(frame);
    layout->addStretch();
    layout->addWidget(run);
    layout->addWidget(cancel);
    connect(cancel, &QPushButton::clicked, this, &QDialog::reject);
    return frame;
}

QCheckBox *ConversionDialog::recompressionRow(QGridLayout *grid, ColourClass colourClass,
                                              QComboBox *&names)
{
    static const QString captions[] = {{}, // by ColourClass
                                       "Black and &Whilt Image Files",
                                       "&Graycale Image files",
                                       "Color I&mage Files"};
    QWidget *frame = grid->parentWidget();
    auto *check = new QCheckBox(captions[colourClass], frame);
    names = new QComboBox(frame);
    // The box is drawn right of its caption.
    check->setLayoutDirection(Qt::RightToLeft);
    names->addItems(RecompressionItems(colourClass));
    auto *label = new QLabel("Recompress to", frame);
    label->setBuddy(names);
    const int row = grid->rowCount();
    grid->addWidget(check, row, 0);
    grid->addWidget(label, row, 1);
    grid->addWidget(names, row, 2);
    // toggled, not clicked: a box set by the program enables its names as a click would.
    connect(check, &QCheckBox::toggled, names, &QWidget::setEnabled);
    return check;
}

void ConversionDialog::resetRecompressionRow(QCheckBox *check, QComboBox *names)
{
    names->setCurrentIndex(RecompressionStartIndex);
    check->setChecked(false);
    names->setEnabled(false);
}

QString ConversionDialog::ticked(const QCheckBox *check, const QComboBox *names)
{
    return check->isChecked() ? names->currentText() : QString();
}

void ConversionDialog::setBusyCursor(bool busy)
{
    if (busy == busy_)
        return;
    busy_ = busy;
    if (busy)
        QApplication::setOverrideCursor(Qt::WaitCursor);
    else
        QApplication::restoreOverrideCursor();
}

} // namespace pw

#include "dlg_save.h"

#include "folder_tree_model.h"

#include "core/app_context.h"
#include "core/globals.h"
#include "core/path_helpers.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDate>
#include <QDir>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTimer>
#include <QTreeView>
#include <QVBoxLayout>

namespace pw {

dlgSave::dlgSave(AppContext &context, QWidget *parent)
    : QDialog(parent), ftvFolder(new QTreeView(this)), txtFileName(new QLineEdit(this)),
      cboFileType(new QComboBox(this)), lblDelimeter(new QLabel("Column Se&parator", this)),
      txtColSaperator(new QLineEdit(this)),
      ChkOpenFile(new QCheckBox("&Open Exported file after completion", this)),
      cmdSave(new QPushButton("&Save", this)), cmdCancel(new QPushButton("&Cancel", this)),
      context_(context), folders_(new FolderTreeModel(this))
{
    setWindowTitle("Export");
    setWindowFlags(windowFlags() & ~Qt::WindowContextHelpButtonHint);
    resize(460, 520);
    ftvFolder->setModel(folders_);
    ftvFolder->setHeaderHidden(true);
    connect(ftvFolder, &QTreeView::expanded, folders_, &FolderTreeModel::populate);
    txtFileName->setMaxLength(255);
    txtColSaperator->setMaxLength(1);
    lblDelimeter->setBuddy(txtColSaperator);
    txtFileName->installEventFilter(this);
    txtColSaperator->installEventFilter(this);

    auto *nameLabel = new QLabel("File &Name", this);
    nameLabel->setBuddy(txtFileName);
    auto *typeLabel = new QLabel("File &Type", this);
    typeLabel->setBuddy(cboFileType);
    auto *fields = new QGridLayout;
    fields->addWidget(nameLabel, 0, 0);
    fields->addWidget(txtFileName, 0, 1, 1, 3);
    fields->addWidget(typeLabel, 1, 0);
    fields->addWidget(cboFileType, 1, 1);
    fields->addWidget(lblDelimeter, 1, 2);
    fields->addWidget(txtColSaperator, 1, 3);
    fields->setColumnStretch(1, 1);
    txtColSaperator->setFixedWidth(txtColSaperator->fontMetrics().horizontalAdvance("MM") + 12);
    auto *buttons = new QHBoxLayout;
    buttons->addWidget(ChkOpenFile);
    buttons->addStretch();
    buttons->addWidget(cmdSave);
    buttons->addWidget(cmdCancel);
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(ftvFolder, 1);
    layout->addLayout(fields);
    layout->addLayout(buttons);

    connect(cboFileType, &QComboBox::currentIndexChanged, this, &dlgSave::cboFileType_Click);
    connect(cmdSave, &QPushButton::clicked, this, &dlgSave::cmdSave_Click);
    connect(cmdCancel, &QPushButton::clicked, this, &dlgSave::cmdCancel_Click);
    cmdSave->setDefault(true);
    Form_Load();
}

void dlgSave::Form_Load()
{
    filename.clear();
    ColumnSaperator.clear();
    const QString location = context_.settings().ExportLocation();
    const bool none = location.trimmed().isEmpty() || location == QString(QChar(0));
    const QModelIndex start = folders_->indexForPath(none ? QDir::rootPath() : location);
    ftvFolder->setCurrentIndex(start);
    ftvFolder->scrollTo(start);
    ftvFolder->expand(start);
    const char *types[] = {"Text Document (*.txt)", "Excel Worksheet(*.xls)", "CSV File (*.csv)",
                           "Word Document (*.doc)"};
    for (int i = 0; i < 4; ++i)
        cboFileType->addItem(types[i], i + 1);
    cboFileType->setCurrentIndex(1);
    ChkOpenFile->setChecked(context_.settings().IsOpenFileAfterExport() != 0);
    txtFileName->setText(DefaultExportName(QDate::currentDate()));
    txtColSaperator->setText(",");
}

void dlgSave::cboFileType_Click()
{
    const int index = cboFileType->currentIndex();
    lblDelimeter->setVisible(index == 3 || index == 0);
    txtColSaperator->setVisible(!lblDelimeter->isHidden());
}

bool dlgSave::IsReservedChar(int keyAscii)
{
    return IsReservedFileNameChar(keyAscii);
}

QString dlgSave::extensionOf(const QString &entry)
{
    return entry.right(4).left(3);
}

bool dlgSave::eventFilter(QObject *watched, QEvent *event)
{
    if (event->type() == QEvent::FocusIn) {
        // After the focus change itself, which would otherwise place the cursor.
        auto *box = static_cast<QLineEdit *>(watched);
        QTimer::singleShot(0, box, &QLineEdit::selectAll);
    }
    if (watched == txtFileName && event->type() == QEvent::KeyPress) {
        const QString typed = static_cast<QKeyEvent *>(event)->text();
        if (typed.size() == 1 && IsReservedChar(typed[0].unicode()))
            return true;
    }
    return QDialog::eventFilter(watched, event);
}

bool dlgSave::Validate()
{
    const char *refusal = txtFileName->text().isEmpty() ? "Please specify file name."
                          : !txtColSaperator->isHidden() && txtColSaperator->text().isEmpty()
                              ? "Please enter column saperator."
                              : nullptr;
    if (refusal)
        context_.ui.MsgBox(refusal, vbInformation, AppTitle);
    return !refusal;
}

void dlgSave::cmdSave_Click()
{
    if (!Validate())
        return;
    const QString extension = extensionOf(cboFileType->currentText());
    QString name = txtFileName->text();
    if (name.contains('.') && name.right(4) == "." + extension)
        name.chop(4);
    const QString folder = ResolveDesktop(folders_->pathOf(ftvFolder->currentIndex()));
    // A root gets a doubled separator, which the file system takes as one.
    filename = folder + separator() + name + "." + extension;
    if (!txtColSaperator->isHidden())
        ColumnSaperator = txtColSaperator->text();
    accept();
}

void dlgSave::cmdCancel_Click()
{
    filename = ExportCancelled;
    reject();
}

void dlgSave::done(int result)
{
    if (filename.isEmpty())
        filename = ExportCancelled;
    OpenFile = ChkOpenFile->isChecked();
    context_.settings().setIsOpenFileAfterExport(OpenFile ? 1 : 0);
    QDialog::done(result);
}

} // namespace pw

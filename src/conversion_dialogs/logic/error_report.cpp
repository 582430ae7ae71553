#include "error_report.h"

#include "backends/common/run_time_errors.h"
#include "core/failure_log.h"
#include "core/ui_services.h"

#include <QSaveFile>

namespace pw {

namespace {

void appendEscaped(QByteArray &rtf, QChar c)
{
    const char16_t unit = c.unicode();
    if (c == '\\' || c == '{' || c == '}') {
        rtf += '\\';
        rtf += char(unit);
    } else if (c == '\t') {
        rtf += "\\tab ";
    } else if (unit < 0x20) {
        rtf += QByteArray("\\'") + QByteArray::number(unit, 16).rightJustified(2, '0');
    } else if (unit < 0x80) {
        rtf += char(unit);
    } else {
        // \uN takes a signed 16-bit number, followed by the one character (\uc1) that a reader
        // without Unicode shows instead: "?", written as a hex escape like word processors do,
        // since some readers take a bare "?" for the end of the control word. Characters beyond
        // the BMP arrive here as their two surrogates, as RTF wants them.
        rtf += "\\u" + QByteArray::number(int16_t(unit)) + "\\'3f";
    }
}

} // namespace

QString ErrorReportSection(const QString &title, const QString &heading, const QString &body)
{
    const QString equals(51, '=');
    const QString dashes(51, '-');
    return QStringList{equals, title, equals, dashes, heading, dashes, {}, body, {}}.join("\r\n") +
           "\r\n";
}

QByteArray RichTextDocument(const QString &text)
{
    QByteArray rtf = "{\\rtf1\\ansi\\ansicpg1252\\deff0\\uc1"
                     "{\\fonttbl{\\f0\\fmodern Courier New;}}\\f0\\fs20\n";
    QString lines = text;
    lines.replace("\r\n", "\n").replace('\r', '\n');
    for (const QChar c : lines) {
        if (c == '\n')
            rtf += "\\par\n";
        else
            appendEscaped(rtf, c);
    }
    return rtf + "}\n";
}

void SaveErrorReport(UiServices &ui, const QString &text)
{
    PW_PROCEDURE("cmdSave_Click", Unit::form("frmErrorReportDialog"));
    guarded(pwTail, [&] {
        PW_STEP;
        const QString file =
            ui.SaveFilePrompt("Save File", "Rich Text Files (*.rtf)|*.rtf", 1,
                              OfnHideReadOnly | OfnOverwritePrompt | OfnPathMustExist);
        if (file.isEmpty())
            return;
        PW_STEP;
        QSaveFile out(file);
        if (!out.open(QIODevice::WriteOnly) || out.write(RichTextDocument(text)) < 0 ||
            !out.commit())
            throw RuntimeError::fromNumber(rte::kPathFileAccessError);
    });
}

} // namespace pw

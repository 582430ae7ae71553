#include "batch_output.h"

#include <sys/ioctl.h>
#include <unistd.h>

namespace pw {

namespace {

int terminalColumns(std::FILE *to)
{
    struct winsize size {};
    return ::ioctl(::fileno(to), TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 80;
}

QString clock(qint64 seconds)
{
    return seconds >= 3600
               ? QString("%1:%2:%3")
                     .arg(seconds / 3600)
                     .arg(seconds / 60 % 60, 2, 10, QChar('0'))
                     .arg(seconds % 60, 2, 10, QChar('0'))
               : QString("%1:%2").arg(seconds / 60).arg(seconds % 60, 2, 10, QChar('0'));
}

} // namespace

TerminalProgress::TerminalProgress(std::FILE *to, bool shown) : to_(to), shown_(shown)
{
    started_.start();
}

TerminalProgress::~TerminalProgress()
{
    clear();
}

void TerminalProgress::setMaximum(int total)
{
    total_ = total;
    started_.restart();
    draw(true);
}

void TerminalProgress::setValue(int done)
{
    done_ = done;
    draw(done == total_);
}

void TerminalProgress::setStatusText(const QString &text)
{
    text_ = text;
    draw(false);
}

void TerminalProgress::clear()
{
    if (!drawn_)
        return;
    std::fputs("\r\033[K", to_);
    std::fflush(to_);
    drawn_ = false;
}

QString TerminalProgress::line(int done, int total, qint64 elapsedMs, const QString &text,
                               int columns)
{
    QString shown = QString("%1 of %2 %3").arg(done).arg(total).arg(total == 1 ? "file" : "files");
    // Time left from the pace so far, once there is one to go by.
    if (done > 0 && done < total && elapsedMs >= 1000)
        shown += ", " + clock(elapsedMs * (total - done) / done / 1000) + " left";
    if (!text.isEmpty())
        shown += "  ";
    // A name with a line break or a tab would break the one line it shares.
    for (const QChar c : text)
        shown += c.category() == QChar::Other_Control ? QChar('?') : c;
    // One character short of the width: a full line would wrap on some terminals.
    return shown.left(std::max(columns - 1, 0));
}

void TerminalProgress::draw(bool force)
{
    if (!shown_ || total_ < 1)
        return;
    if (!force && drawn_ && drawnAt_.isValid() && drawnAt_.elapsed() < 200)
        return;
    const QString text = line(done_, total_, started_.elapsed(), text_, terminalColumns(to_));
    std::fputs(("\r\033[K" + text).toLocal8Bit().constData(), to_);
    std::fflush(to_);
    drawn_ = true;
    drawnAt_.restart();
}

} // namespace pw

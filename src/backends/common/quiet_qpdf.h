#pragma once

// Damaged files are the rule among the PDFs a user's disks hold; qpdf repairs what it can and
// must not print about it. For the modules built on qpdf.

#include <qpdf/QPDF.hh>
#include <qpdf/QPDFLogger.hh>

namespace pw {

inline void quieten(QPDF &pdf)
{
    auto logger = QPDFLogger::create();
    logger->setInfo(logger->discard());
    logger->setWarn(logger->discard());
    logger->setError(logger->discard());
    pdf.setLogger(logger);
    pdf.setSuppressWarnings(true);
}

} // namespace pw

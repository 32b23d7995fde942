#pragma once

// The node exporter's textfile format (corebench.prom) of the latest record of each test.

#include <QByteArray>
#include <QString>
#include <optional>

#include "record.h"

// The whole file after record: the record's series replace those of its test, the series of other
// tests in existing (the file as it was; may be empty or damaged) are kept, and corebench_info
// describes the latest binary and CPU. The test's baseline and drift ratio series are written when
// there is one, whether the run was disturbed when that is known.
QByteArray promText(const Record& record, std::optional<double> baseline,
                    const QByteArray& existing, std::optional<double> driftRatio = std::nullopt);

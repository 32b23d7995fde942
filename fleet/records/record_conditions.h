#pragma once

// The conditions of a run in its record: made from what fleet/conditions measured, and their
// JSON form, the "conditions" and "disturbed" keys of a schema-2 record.

#include <QJsonValue>
#include <QString>
#include <QStringList>
#include <optional>

#include "power_state.h"
#include "record.h"
#include "run_conditions.h"

// A record's causes (disturbed, likely_causes): each one line of at most this many characters,
// at most this many of them. The longest the program writes names a list of CPUs.
constexpr int kMaxCauseChars = 1000;
constexpr int kMaxCauses = 32;

// The record's conditions of a run: its figures, the power state at its end (before tells which
// throttle counters rose during it) and the likely causes of slowness they show.
RecordConditions recordConditions(const RunConditions& figures, const PowerState& before,
                                  const PowerState& after);

// The verdict on figures in the record's words: the causes, none for a clean run, nothing where
// it is unknown.
std::optional<QStringList> disturbedCauses(const RunConditions& figures);

QJsonValue conditionsToJson(const std::optional<RecordConditions>& conditions);
QJsonValue disturbedToJson(const std::optional<QStringList>& disturbed);

// Read back from a record, which anyone may have written: null, or no such key (schema 1), is
// nothing; false with error set to the reason when a value has the wrong type or is out of range.
bool conditionsFromJson(const QJsonValue& value, std::optional<RecordConditions>* conditions,
                        QString* error);
bool disturbedFromJson(const QJsonValue& value, std::optional<QStringList>* disturbed,
                       QString* error);

#pragma once

// The compare rows as the HTML report's script reads them: one compact JSON object, safe inside a
// <script> element whatever the records hold ('<', '>' and '&' only as \u escapes, so neither
// "</script" nor "<!--" can occur in it).
//
//   {"count":rows,"timeBase":seconds,"columns":[column...],"groups":[group...]}
//
// A column is one of the CSV's, in its order: {"name":..,"kind":..,"values":[one per row]}, an
// empty field null, the others as the smallest of
//   "kind":"fixed","decimals":d  numbers with d decimals, the field being toFixed(d) of the number
//                                (a negative zero, which JSON does not keep, as text)
//   "kind":"time"                UTC times to the second, as seconds after timeBase
//   "kind":"text"                the field; with "subst":true, "\u0000h" stands for the row's host
//                                and "\u0000t" for its started_at without '-' and ':' (what a
//                                record file's name holds)
// and with "dict":[...] the values are indices into that list (fields that repeat, written once).
// A group is {"first":row,"count":rows,"median":PS or null,"floor":PS or null}.

#include <QByteArray>
#include <optional>
#include <vector>

#include "fleet_compare.h"

// Rows [first, first + count) of one group of like machines.
struct ReportGroup {
    size_t first = 0;
    size_t count = 0;
    std::optional<double> median;
    std::optional<double> floor;
};

QByteArray reportDataJson(const std::vector<CompareRow>& rows,
                          const std::vector<ReportGroup>& groups);

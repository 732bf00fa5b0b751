// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "spelling.h"

#include <algorithm>
#include <limits>
#include <vector>

namespace {

/// The number of letters to be put in, left out or exchanged with their neighbour that make one word of the
/// other (optimal string alignment). Another letter in a place costs two, so that a word with parts left out
/// is nearer than one with another letter.
int EditDistance(const QString &one, const QString &other)
{
    const auto width = static_cast<size_t>(other.size()) + 1;
    std::vector<int> beforeLast(width);
    std::vector<int> last(width);
    for (size_t j = 0; j < width; ++j)
        last[j] = static_cast<int>(j);
    for (int i = 1; i <= one.size(); ++i) {
        std::vector<int> row(width);
        row[0] = i;
        for (int j = 1; j <= other.size(); ++j) {
            const auto at = static_cast<size_t>(j);
            const int replaced = last[at - 1] + (one[i - 1] == other[j - 1] ? 0 : 2);
            row[at] = std::min({last[at] + 1, row[at - 1] + 1, replaced});
            if (i > 1 && j > 1 && one[i - 1] == other[j - 2] && one[i - 2] == other[j - 1])
                row[at] = std::min(row[at], beforeLast[at - 2] + 1);
        }
        beforeLast.swap(last);
        last.swap(row);
    }
    return last.back();
}

/// Near is what shares two thirds of the letters, and differs in no more than a few.
bool IsNear(int distance, const QString &one, const QString &other)
{
    constexpr int MOST = 6;
    return distance <= MOST && 3 * distance <= one.size() + other.size();
}

} // namespace

QString NearestWord(const QString &word, const QStringList &candidates)
{
    constexpr int LONGEST = 64; // all that is misspelt is shorter
    QString nearest;
    if (word.size() > LONGEST || candidates.contains(word))
        return nearest;
    int shortest = std::numeric_limits<int>::max();
    for (const QString &candidate : candidates) {
        const int distance = EditDistance(word.toLower(), candidate.toLower());
        if (distance >= shortest || !IsNear(distance, word, candidate))
            continue;
        nearest = candidate;
        shortest = distance;
    }
    return nearest;
}

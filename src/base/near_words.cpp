#include "base/near_words.h"

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <utility>

namespace gvx {
namespace {

constexpr std::size_t kLongestWord = 128;
constexpr std::size_t kMostWords = 3;

std::string Lower(std::string word) {
    std::transform(word.begin(), word.end(), word.begin(),
                   [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
    return word;
}

std::size_t Distance(const std::string& a, const std::string& b) {
    std::vector<std::size_t> row(b.size() + 1);
    for (std::size_t j = 0; j <= b.size(); ++j) {
        row[j] = j;
    }
    for (std::size_t i = 1; i <= a.size(); ++i) {
        std::size_t diagonal = row[0];
        row[0] = i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const std::size_t above = row[j];
            row[j] = std::min({row[j - 1] + 1, above + 1, diagonal + (a[i - 1] == b[j - 1] ? 0 : 1)});
            diagonal = above;
        }
    }
    return row[b.size()];
}

}  // namespace

std::vector<std::string> NearWords(const std::string& misspelt, const std::vector<std::string>& words) {
    std::vector<std::pair<std::size_t, std::string>> near;
    if (misspelt.empty() || misspelt.size() > kLongestWord) {
        return {};
    }
    const std::size_t most = std::max<std::size_t>(misspelt.size() / 3, 2);
    for (const std::string& word : words) {
        const std::size_t distance = Distance(Lower(misspelt), Lower(word));
        if (distance <= most) {
            near.emplace_back(distance, word);
        }
    }
    std::stable_sort(near.begin(), near.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    std::vector<std::string> found;
    for (std::size_t i = 0; i < std::min(near.size(), kMostWords); ++i) {
        found.push_back(near[i].second);
    }
    return found;
}

}  // namespace gvx

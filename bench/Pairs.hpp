#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

namespace bench {

/// The value below which that share of them lies. There is at least one.
inline double Quantile(std::vector<double> values, double share) {
    std::ranges::sort(values);
    return values[static_cast<std::size_t>(share * static_cast<double>(values.size() - 1) + 0.5)];
}

inline double Median(std::vector<double> values) {
    return Quantile(std::move(values), 0.5);
}

/// One figure of two programs that take turns: a pair for each round. The ratios are taken pair by pair, so that what
/// slows the machine down for a while slows both.
class Pairs {
  public:
    void Add(double own, double peer) {
        mOwn.push_back(own);
        mPeer.push_back(peer);
        mRatios.push_back(own / peer);
    }

    const std::vector<double>& Own() const { return mOwn; }
    const std::vector<double>& Peer() const { return mPeer; }
    const std::vector<double>& Ratios() const { return mRatios; }

    /// Prints the medians: "<what>: 12.3 us, <peer> 4.5 us, ratio 2.733<goal>".
    /// @param decimals  of the two figures
    /// @param goal      " (goal 2.0)", or empty
    void Tell(const std::string& what, const char* peer, const char* unit, int decimals, const char* goal) const {
        std::printf("%s: %.*f %s, %s %.*f %s, ratio %.3f%s\n", what.c_str(), decimals, Median(mOwn), unit, peer,
                    decimals, Median(mPeer), unit, Median(mRatios), goal);
    }

  private:
    std::vector<double> mOwn, mPeer, mRatios;
};

}  // namespace bench

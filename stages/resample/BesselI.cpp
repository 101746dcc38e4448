#include "stages/resample/BesselI.h"

#include <cmath>

namespace velorine {

namespace {
constexpr double seriesEnd = 3.75; ///< power series below, asymptotic one above
}

double besselI0(double x) {
    const double a = std::abs(x);
    if (a < seriesEnd) {
        const double t = (x / seriesEnd) * (x / seriesEnd);
        return 1.0 +
               t * (3.5156229 +
                    t * (3.0899424 +
                         t * (1.2067492 + t * (0.2659732 + t * (0.0360768 + t * 0.0045813)))));
    }
    const double t = seriesEnd / a;
    const double series =
        0.39894228 +
        t * (0.01328592 +
             t * (0.00225319 +
                  t * (-0.00157565 +
                       t * (0.00916281 +
                            t * (-0.02057706 +
                                 t * (0.02635537 + t * (-0.01647633 + t * 0.00392377)))))));
    return std::exp(a) / std::sqrt(a) * series;
}

double besselI1(double x) {
    const double q = x * x;
    if (x < seriesEnd)
        return x *
               (2.2525392428613281e18 +
                q * (2.815710012e17 +
                     q * (1.1729602224e16 +
                          q * (245120901120000.0 + q * (2955411456000.0 + q * 32025608192.0))))) /
               4.5050811767578127e18;
    const double lower =
        1050113963671875.0 +
        q * (114483492450000.0 + q * (1531212000000.0 + q * (-31346462720.0 + q * 290500902912.0)));
    const double upper = 1899503187890625.0 +
                         q * (944039377125000.0 +
                              q * (34098226560000.0 + q * (236373248000.0 + q * 217942065152.0)));
    const double growth = 9.0 * std::exp(x);
    const double ninth = q * q * q * q * x;
    return growth * std::sqrt(x) * lower / (6553600000000.0 * ninth) -
           growth * std::sqrt(x * x * x) * upper / (13107200000000.0 * ninth * q);
}

} // namespace velorine

#include "analysis/sumInterp.h"

#include <algorithm>
#include <cstdio>
#include <vector>

namespace analysis {

int pgvTraceFlag = 1;
int pgvTraceLevel = 100;

namespace {

int lengthOf(const simdata::DataVector* vector) {
  return vector != nullptr ? std::max(vector->length(), 0) : 0;
}

}  // namespace

void sumInterp(int minTime, const simdata::DataVector* y1, const simdata::DataVector* y2,
               const simdata::DataVector* x1, const simdata::DataVector* x2,
               simdata::MemoryVector* outY, simdata::MemoryVector* outX, bool storeTime) {
  using simdata::getDataVectorAt;
  const bool trace = pgvTraceFlag == 1 || pgvTraceLevel == 2;
  const bool traceInterpolation = pgvTraceLevel == 2;
  const int len1 = lengthOf(y1);
  const int len2 = lengthOf(y2);
  // Entry 0 always exists, even when both waveforms are absent.
  const size_t capacity = std::max<size_t>(1, static_cast<size_t>(len1) + len2);
  std::vector<double> sums(capacity);
  std::vector<double> times(capacity);

  double t = getDataVectorAt(x1, 0);
  double a = y1 != nullptr ? getDataVectorAt(y1, 0) : 0.0;
  double b = y2 != nullptr ? getDataVectorAt(y2, 0) : 0.0;
  if (trace) {
    std::printf("Common time = %g  \n", t);
    std::printf("time = %d v1=%g v2=%g setval= %g\n", 0, a, b, a + b);
  }
  sums[0] = a + b;
  times[0] = t;
  int i = 1;
  int j = 1;
  int stored = 0;
  while (i < len1 || j < len2) {
    double next = 0.0;
    if (i < len1 && j < len2) {
      const double t1 = getDataVectorAt(x1, i);
      const double t2 = getDataVectorAt(x2, j);
      if (t1 < t2) {
        if (trace) {
          std::printf("using t1 time %g ..less than  t2 :%g\n", t1, t2);
        }
        a = getDataVectorAt(y1, i);
        const double sample = getDataVectorAt(y2, j);
        b = b + (sample - b) / (t2 - t) * (t1 - t);
        if (trace && traceInterpolation) {
          std::printf(" next  = %g interp= %g\n", sample, b);
        }
        next = t1;
        ++i;
      } else if (t1 > t2) {
        b = getDataVectorAt(y2, j);
        const double sample = getDataVectorAt(y1, i);
        a = a + (sample - a) / (t1 - t) * (t2 - t);
        if (trace && traceInterpolation) {
          std::printf(" next  = %g interp= %g\n", sample, a);
        }
        if (trace) {
          std::printf("using t2 time %g ..less than  t1 :%g\n", t2, t1);
        }
        next = t2;
        ++j;
      } else {
        a = getDataVectorAt(y1, i);
        b = getDataVectorAt(y2, j);
        next = t2;
        ++i;
        ++j;
      }
    } else if (i < len1) {
      next = getDataVectorAt(x1, i);
      a = getDataVectorAt(y1, i);
      if (trace) {
        std::printf("using t1 time..end of t2 :%g\n", next);
      }
      ++i;
    } else {
      next = getDataVectorAt(x2, j);
      b = getDataVectorAt(y2, j);
      if (trace) {
        std::printf("using t2 time..end of t1 :%g\n", next);
      }
      ++j;
    }
    // An int bound against times in seconds: a bound above the first time stops every
    // later store. Kept as it is.
    if (static_cast<double>(minTime) > t) {
      continue;
    }
    const int index = stored == 0 ? 1 : stored;
    stored = stored == 0 ? 2 : stored + 1;
    sums[index] = a + b;
    if (storeTime) {
      times[index] = next;
    }
    if (trace) {
      std::printf("t : %e v1:%e + v2:%e : %e\n", next, a, b, a + b);
    }
    t = next;
  }
  if (stored != 0) {
    for (int k = 0; k < stored; ++k) {
      if (outY != nullptr) {
        outY->set(k, sums[k]);
      }
      if (storeTime && outX != nullptr) {
        outX->set(k, times[k]);
      }
      if (trace) {
        std::printf(" : %d", k);
      }
    }
  }
  if (trace) {
    std::printf(" DVEC1 :%d DVEC2 :%d\n", len1, len2);
    std::printf(" XVEC1 :%d  XVEC2 :%d\n", lengthOf(x1), lengthOf(x2));
    std::printf("CT :%d\n", stored);
  }
}

}  // namespace analysis

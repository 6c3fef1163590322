#include "sim/output/SvgPlotWriter.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "feature/GorvFeature.h"
#include "sim/SimWords.h"
#include "sim/TextEscape.h"

namespace {

constexpr double kWidth = 1000, kHeight = 440;
constexpr double kLeft = 70, kRight = 960, kTop = 50, kBottom = 370;

using Points = std::vector<SeriesReducer::Point>;

// A step of 1, 2 or 5 times a power of ten giving at most `ticks` steps
// over `span` (at least `least`).
double NiceStep(double span, double ticks, double least) {
  double step = least;
  for (double scale = least; span / step > ticks; scale *= 10) {
    for (double factor : {1.0, 2.0, 5.0}) {
      step = scale * factor;
      if (span / step <= ticks) break;
    }
  }
  return step;
}

std::string Number(double value) {
  char text[32];
  std::snprintf(text, sizeof(text), "%.6g", value);
  return text;
}

class Frame {
 public:
  Frame(int64_t endMs, double maxFps)
      : mEndMs(std::max<int64_t>(endMs, 1)), mMaxFps(maxFps), mFpsStep(NiceStep(maxFps, 8, 10)) {
    if (mMaxFps <= 150) mFpsStep = 30;
    mMaxFps = std::ceil(mMaxFps / mFpsStep) * mFpsStep;
  }
  double X(int64_t ms) const {
    return kLeft + (kRight - kLeft) *
                       std::clamp(static_cast<double>(ms) / static_cast<double>(mEndMs), 0.0, 1.0);
  }
  double Y(double fps) const {
    double clamped = std::isfinite(fps) ? std::clamp(fps, 0.0, mMaxFps) : 0.0;
    return kBottom - (kBottom - kTop) * clamped / mMaxFps;
  }
  int64_t endMs() const { return mEndMs; }
  double maxFps() const { return mMaxFps; }
  double fpsStep() const { return mFpsStep; }

 private:
  int64_t mEndMs;
  double mMaxFps;
  double mFpsStep;
};

void Axes(const Frame& frame, std::ostream& out) {
  out << "<g font-family=\"sans-serif\" font-size=\"12\" fill=\"#333\">\n";
  for (int i = 0; i * frame.fpsStep() <= frame.maxFps() && i <= 20; ++i) {
    double fps = i * frame.fpsStep();
    double y = frame.Y(fps);
    out << "<line x1=\"" << kLeft << "\" y1=\"" << y << "\" x2=\"" << kRight << "\" y2=\"" << y
        << "\" stroke=\"#ddd\"/>\n<text x=\"" << kLeft - 8 << "\" y=\"" << y + 4
        << "\" text-anchor=\"end\">" << Number(fps) << "</text>\n";
  }
  double step = NiceStep(static_cast<double>(frame.endMs()), 12, 500);
  for (int i = 0; i * step <= static_cast<double>(frame.endMs()) && i <= 24; ++i) {
    auto ms = static_cast<int64_t>(i * step);
    double x = frame.X(ms);
    out << "<line x1=\"" << x << "\" y1=\"" << kBottom << "\" x2=\"" << x << "\" y2=\""
        << kBottom + 5 << "\" stroke=\"#333\"/>\n<text x=\"" << x << "\" y=\"" << kBottom + 20
        << "\" text-anchor=\"middle\">" << Number(static_cast<double>(ms) / 1000.0) << "</text>\n";
  }
  out << "<rect x=\"" << kLeft << "\" y=\"" << kTop << "\" width=\"" << kRight - kLeft
      << "\" height=\"" << kBottom - kTop << "\" fill=\"none\" stroke=\"#333\"/>\n"
      << "<text x=\"" << (kLeft + kRight) / 2 << "\" y=\"" << kBottom + 42
      << "\" text-anchor=\"middle\">time (s)</text>\n"
      << "<text transform=\"translate(20," << (kTop + kBottom) / 2
      << ") rotate(-90)\" text-anchor=\"middle\">frames per second</text>\n</g>\n";
}

void Legend(bool janky, std::ostream& out) {
  double x = kLeft + 10, y = kTop - 14;
  out << "<g font-family=\"sans-serif\" font-size=\"12\">\n"
      << "<line x1=\"" << x << "\" y1=\"" << y << "\" x2=\"" << x + 24 << "\" y2=\"" << y
      << "\" stroke=\"#1f77b4\" stroke-width=\"1.5\"/><text x=\"" << x + 30 << "\" y=\"" << y + 4
      << "\">measured frame rate</text>\n"
      << "<line x1=\"" << x + 170 << "\" y1=\"" << y << "\" x2=\"" << x + 194 << "\" y2=\"" << y
      << "\" stroke=\"#ff7f0e\" stroke-width=\"3\"/><text x=\"" << x + 200 << "\" y=\"" << y + 4
      << "\">target written to the fps node</text>\n"
      << "<rect x=\"" << x + 400 << "\" y=\"" << y - 7 << "\" width=\"24\" height=\"14\" "
      << "fill=\"#2ca02c\" fill-opacity=\"0.25\"/><text x=\"" << x + 430 << "\" y=\"" << y + 4
      << "\">performance lock held</text>\n"
      << "<line x1=\"" << x + 590 << "\" y1=\"" << y - 7 << "\" x2=\"" << x + 590 << "\" y2=\""
      << y + 7 << "\" stroke=\"#777\" stroke-dasharray=\"3,3\"/><text x=\"" << x + 596 << "\" y=\""
      << y + 4 << "\">trigger</text>\n";
  if (janky) {
    out << "<line x1=\"" << x + 670 << "\" y1=\"" << y - 7 << "\" x2=\"" << x + 670 << "\" y2=\""
        << y + 7 << "\" stroke=\"#d62728\" stroke-width=\"2\"/><text x=\"" << x + 676 << "\" y=\""
        << y + 4 << "\">janky frame (per the trace)</text>\n";
  }
  out << "</g>\n";
}

// A short red tick at the bottom of the plot for each frame the replayed
// trace flags as janky.
void JankyFrames(const Frame& frame, const std::vector<int64_t>& jankyMs, std::ostream& out) {
  for (int64_t ms : jankyMs) {
    double x = frame.X(ms);
    out << "<line x1=\"" << x << "\" y1=\"" << kBottom - 14 << "\" x2=\"" << x << "\" y2=\""
        << kBottom << "\" stroke=\"#d62728\" stroke-width=\"1.5\"/>\n";
  }
}

void StepLine(const Frame& frame, const Points& points, int64_t endMs, const char* style,
              std::ostream& out) {
  if (points.empty()) return;
  out << "<polyline fill=\"none\" " << style << " points=\"";
  for (size_t i = 0; i < points.size(); ++i) {
    int64_t until = i + 1 < points.size() ? points[i + 1].first : endMs;
    out << frame.X(points[i].first) << "," << frame.Y(points[i].second) << " " << frame.X(until)
        << "," << frame.Y(points[i].second) << " ";
  }
  out << "\"/>\n";
}

void LockSpans(const Frame& frame, const Points& lock, int64_t endMs, std::ostream& out) {
  for (size_t i = 0; i < lock.size(); ++i) {
    if (lock[i].second == 0) continue;
    int64_t until = i + 1 < lock.size() ? lock[i + 1].first : endMs;
    out << "<rect x=\"" << frame.X(lock[i].first) << "\" y=\"" << kTop << "\" width=\""
        << std::max(frame.X(until) - frame.X(lock[i].first), 1.0) << "\" height=\""
        << kBottom - kTop << "\" fill=\"#2ca02c\" fill-opacity=\"0.25\"/>\n";
  }
}

void Title(const std::string& name, std::ostream& out) {
  out << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" << kWidth << "\" height=\"" << kHeight
      << "\" viewBox=\"0 0 " << kWidth << " " << kHeight << "\">\n"
      << "<rect width=\"100%\" height=\"100%\" fill=\"white\"/>\n"
      << "<text x=\"" << kWidth / 2
      << "\" y=\"18\" text-anchor=\"middle\" font-family=\"sans-serif\" "
      << "font-size=\"15\">" << TextEscape::Xml("gorv-sim: " + name)
      << " - measured frame rate and target</text>\n";
}

void TriggerLines(const Frame& frame, const std::vector<std::pair<int64_t, std::string>>& triggers,
                  std::ostream& out) {
  int row = 0;
  for (const auto& [ms, label] : triggers) {
    double x = frame.X(ms);
    out << "<line x1=\"" << x << "\" y1=\"" << kTop << "\" x2=\"" << x << "\" y2=\"" << kBottom
        << "\" stroke=\"#777\" stroke-dasharray=\"3,3\"/>\n<text x=\"" << x + 3 << "\" y=\""
        << kTop + 14 + 14 * (row++ % 3) << "\" font-family=\"sans-serif\" font-size=\"11\" "
        << "fill=\"#555\">" << TextEscape::Xml(label) << "</text>\n";
  }
}

void Stopped(const Frame& frame, const RunEnd& end, std::ostream& out) {
  double x = frame.X(end.endMs);
  out << "<line x1=\"" << x << "\" y1=\"" << kTop << "\" x2=\"" << x << "\" y2=\"" << kBottom
      << "\" stroke=\"#d62728\" stroke-width=\"2\"/>\n<text x=\"" << x - 3 << "\" y=\""
      << kBottom - 8 << "\" text-anchor=\"end\" font-family=\"sans-serif\" font-size=\"11\" "
      << "fill=\"#d62728\">" << TextEscape::Xml("stopped: " + end.stopped) << "</text>\n";
}

double MaxOf(const Points& points, double least) {
  for (const auto& point : points) least = std::max(least, point.second);
  return least;
}

}  // namespace

SvgPlot::SvgPlot(const RunInfo& run)
    : mName(run.scenarioName),
      mEndMs(run.endMs),
      mSeries(run, kBuckets, 1),
      mLabels(run.endMs, kBuckets, 1) {}

void SvgPlot::Add(const SimEvent& event) {
  mSeries.Add(event);
  if (event.kind != SimEvent::Kind::Trigger || !mLabels.Take(event.tMs)) return;
  std::string label = SimWords::TriggerName(event.value);
  if (event.value == GorvFeature::kTriggerFpsHint ||
      event.value == GorvFeature::kTriggerVendorHintDisable) {
    label += " " + std::to_string(event.triggerValue);
  }
  mTriggers.emplace_back(event.tMs, label);
}

void SvgPlot::Write(const RunEnd& end, std::ostream& out) {
  Points measured = mSeries.Measured();
  Points target = mSeries.Target();
  Frame frame(mEndMs, MaxOf(target, MaxOf(measured, 150)));
  int64_t lastMs = std::min(end.endMs, mEndMs);
  Title(mName, out);
  LockSpans(frame, mSeries.Lock(), lastMs, out);
  Axes(frame, out);
  Legend(!mSeries.Janky().empty(), out);
  JankyFrames(frame, mSeries.Janky(), out);
  Points shown;
  for (const auto& point : measured) {
    if (point.first <= lastMs) shown.push_back(point);
  }
  StepLine(frame, shown, lastMs, "stroke=\"#1f77b4\" stroke-width=\"1.5\"", out);
  StepLine(frame, target, lastMs, "stroke=\"#ff7f0e\" stroke-width=\"3\"", out);
  TriggerLines(frame, mTriggers, out);
  if (!end.stopped.empty()) Stopped(frame, end, out);
  out << "</svg>\n";
}

#include "sim/SvgPlotWriter.h"

#include <algorithm>
#include <cmath>
#include <sstream>
#include <string>

#include "sim/RunSummary.h"
#include "sim/TimelinePrinter.h"

namespace {

constexpr double kWidth = 1000, kHeight = 440;
constexpr double kLeft = 70, kRight = 960, kTop = 50, kBottom = 370;

std::string Escape(const std::string& text) {
  std::string out;
  for (char c : text) {
    switch (c) {
      case '&': out += "&amp;"; break;
      case '<': out += "&lt;"; break;
      case '>': out += "&gt;"; break;
      case '"': out += "&quot;"; break;
      default: out += c;
    }
  }
  return out;
}

class Frame {
 public:
  Frame(int64_t endMs, double maxFps) : mEndMs(std::max<int64_t>(endMs, 1)), mMaxFps(maxFps) {}
  double X(int64_t ms) const {
    return kLeft + (kRight - kLeft) * static_cast<double>(ms) / static_cast<double>(mEndMs);
  }
  double Y(double fps) const {
    double clamped = std::isfinite(fps) ? std::clamp(fps, 0.0, mMaxFps) : 0.0;
    return kBottom - (kBottom - kTop) * clamped / mMaxFps;
  }
  int64_t endMs() const { return mEndMs; }
  double maxFps() const { return mMaxFps; }

 private:
  int64_t mEndMs;
  double mMaxFps;
};

// A tick step giving at most about 12 ticks.
int64_t TickStepMs(int64_t endMs) {
  for (int64_t step : {500, 1000, 2000, 5000, 10000, 30000, 60000, 120000, 300000, 600000}) {
    if (endMs / step <= 12) return step;
  }
  return 3600000;
}

void Axes(const Frame& frame, std::ostream& out) {
  out << "<g font-family=\"sans-serif\" font-size=\"12\" fill=\"#333\">\n";
  for (int fps = 0; fps <= frame.maxFps(); fps += 30) {
    double y = frame.Y(fps);
    out << "<line x1=\"" << kLeft << "\" y1=\"" << y << "\" x2=\"" << kRight << "\" y2=\"" << y
        << "\" stroke=\"#ddd\"/>\n<text x=\"" << kLeft - 8 << "\" y=\"" << y + 4
        << "\" text-anchor=\"end\">" << fps << "</text>\n";
  }
  int64_t step = TickStepMs(frame.endMs());
  for (int64_t ms = 0; ms <= frame.endMs(); ms += step) {
    double x = frame.X(ms);
    out << "<line x1=\"" << x << "\" y1=\"" << kBottom << "\" x2=\"" << x << "\" y2=\""
        << kBottom + 5 << "\" stroke=\"#333\"/>\n<text x=\"" << x << "\" y=\"" << kBottom + 20
        << "\" text-anchor=\"middle\">" << static_cast<double>(ms) / 1000.0 << "</text>\n";
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
      << y + 7 << "\" stroke=\"#777\" stroke-dasharray=\"3,3\"/><text x=\"" << x + 596
      << "\" y=\"" << y + 4 << "\">trigger</text>\n";
  if (janky) {
    out << "<line x1=\"" << x + 670 << "\" y1=\"" << y - 7 << "\" x2=\"" << x + 670 << "\" y2=\""
        << y + 7 << "\" stroke=\"#d62728\" stroke-width=\"2\"/><text x=\"" << x + 676
        << "\" y=\"" << y + 4 << "\">janky frame (per the trace)</text>\n";
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

void StepLine(const Frame& frame, const std::vector<std::pair<int64_t, double>>& points,
              const char* style, std::ostream& out) {
  if (points.empty()) return;
  out << "<polyline fill=\"none\" " << style << " points=\"";
  for (size_t i = 0; i < points.size(); ++i) {
    int64_t until = i + 1 < points.size() ? points[i + 1].first : frame.endMs();
    out << frame.X(points[i].first) << "," << frame.Y(points[i].second) << " " << frame.X(until)
        << "," << frame.Y(points[i].second) << " ";
  }
  out << "\"/>\n";
}

}  // namespace

void SvgPlotWriter::Write(const RunResult& result, std::ostream& out) {
  RunSummary summary = RunSummary::Of(result);
  double maxFps = 150;
  for (const auto& [ms, fps] : result.measured) {
    if (std::isfinite(fps)) maxFps = std::max(maxFps, static_cast<double>(fps));
  }
  for (const auto& [ms, fps] : summary.targets) maxFps = std::max(maxFps, static_cast<double>(fps));
  Frame frame(result.endMs, std::ceil(maxFps / 30.0) * 30.0);

  out << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" << kWidth << "\" height=\""
      << kHeight << "\" viewBox=\"0 0 " << kWidth << " " << kHeight << "\">\n"
      << "<rect width=\"100%\" height=\"100%\" fill=\"white\"/>\n"
      << "<text x=\"" << kWidth / 2 << "\" y=\"18\" text-anchor=\"middle\" font-family=\"sans-serif\" "
      << "font-size=\"15\">" << Escape("gorv-sim: " + result.scenarioName)
      << " - measured frame rate and target</text>\n";
  for (const auto& [from, to] : summary.lockSpans) {
    out << "<rect x=\"" << frame.X(from) << "\" y=\"" << kTop << "\" width=\""
        << std::max(frame.X(to) - frame.X(from), 1.0) << "\" height=\"" << kBottom - kTop
        << "\" fill=\"#2ca02c\" fill-opacity=\"0.25\"/>\n";
  }
  Axes(frame, out);
  Legend(!result.jankyMs.empty(), out);
  JankyFrames(frame, result.jankyMs, out);
  std::vector<std::pair<int64_t, double>> measured(result.measured.begin(), result.measured.end());
  StepLine(frame, measured, "stroke=\"#1f77b4\" stroke-width=\"1.5\"", out);
  std::vector<std::pair<int64_t, double>> targets = {{0, 0.0}};
  for (const auto& [ms, fps] : summary.targets) targets.emplace_back(ms, fps);
  StepLine(frame, targets, "stroke=\"#ff7f0e\" stroke-width=\"3\"", out);
  int row = 0;
  for (const SimEvent& event : result.events) {
    if (event.kind != SimEvent::Kind::Trigger) continue;
    double x = frame.X(event.tMs);
    std::string label = TimelinePrinter::TriggerName(event.value);
    if (event.value == 4221 || event.value == 4222) label += " " + std::to_string(event.triggerValue);
    out << "<line x1=\"" << x << "\" y1=\"" << kTop << "\" x2=\"" << x << "\" y2=\"" << kBottom
        << "\" stroke=\"#777\" stroke-dasharray=\"3,3\"/>\n<text x=\"" << x + 3 << "\" y=\""
        << kTop + 14 + 14 * (row++ % 3) << "\" font-family=\"sans-serif\" font-size=\"11\" "
        << "fill=\"#555\">" << Escape(label) << "</text>\n";
  }
  out << "</svg>\n";
}

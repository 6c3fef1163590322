#include "sim/run/RunRequest.h"

#include <algorithm>
#include <cstdint>
#include <memory>
#include <unordered_map>
#include <utility>
#include <vector>

#include "sim/run/WireFormat.h"

namespace {

using WireFormat::Cursor;
using WireFormat::Put;
using WireFormat::PutText;

// The first bytes of a request: its layout's name and the sizes it
// assumes, so that a request from another build is refused, not misread.
std::string Magic() {
  return "gorv-sim run request 1/" + std::to_string(sizeof(Scenario)) + "/" +
         std::to_string(sizeof(FrameTimeline));
}

void PutNumbers(std::string* out, const std::vector<int64_t>& numbers, int64_t plus) {
  Put(out, static_cast<uint64_t>(numbers.size()));
  for (int64_t number : numbers) Put(out, number + plus);
}

std::vector<int64_t> GetNumbers(Cursor& in) {
  std::vector<int64_t> numbers;
  auto count = in.Get<uint64_t>();
  for (uint64_t i = 0; i < count && in.ok(); ++i) numbers.push_back(in.Get<int64_t>());
  return numbers;
}

// A timeline as the capture held it (frames on the device's clock), so
// that assigning it again gives the same timeline, origin included.
void PutTimeline(std::string* out, const FrameTimeline& timeline) {
  PutText(out, timeline.name());
  PutText(out, timeline.format());
  PutText(out, timeline.layer());
  PutNumbers(out, timeline.frames(), timeline.originNs());
  PutNumbers(out, timeline.janky(), timeline.originNs());
}

// True when every value less the smallest frame fits in 64 bits, as the
// capture readers check before they assign a timeline.
bool SpanFits(const std::vector<int64_t>& frames, const std::vector<int64_t>& values) {
  int64_t origin = frames.empty() ? 0 : *std::min_element(frames.begin(), frames.end());
  int64_t difference = 0;
  return std::none_of(values.begin(), values.end(), [&](int64_t value) {
    return __builtin_sub_overflow(value, origin, &difference);
  });
}

// Null when the bytes are damaged.
std::shared_ptr<const FrameTimeline> GetTimeline(Cursor& in) {
  std::string name = in.Text();
  std::string format = in.Text();
  std::string layer = in.Text();
  std::vector<int64_t> frames = GetNumbers(in);
  std::vector<int64_t> janky = GetNumbers(in);
  if (!in.ok() || !SpanFits(frames, frames) || !SpanFits(frames, janky)) return nullptr;
  auto timeline = std::make_shared<FrameTimeline>();
  timeline->Assign(name, format, std::move(frames), layer, std::move(janky));
  return timeline;
}

// The rates' timelines, each once; a rate names its timeline by index
// (-1: none).
void PutRates(std::string* out, const std::vector<Scenario::RateChange>& rates) {
  std::unordered_map<const FrameTimeline*, int32_t> index;
  std::vector<const FrameTimeline*> timelines;
  for (const Scenario::RateChange& rate : rates) {
    const FrameTimeline* timeline = rate.timeline.get();
    if (timeline != nullptr && index.emplace(timeline, timelines.size()).second) {
      timelines.push_back(timeline);
    }
  }
  Put(out, static_cast<uint32_t>(timelines.size()));
  for (const FrameTimeline* timeline : timelines) PutTimeline(out, *timeline);
  Put(out, static_cast<uint64_t>(rates.size()));
  for (const Scenario::RateChange& rate : rates) {
    Put(out, rate.atMs);
    Put(out, rate.fps);
    Put(out, rate.timeline == nullptr ? int32_t{-1} : index.at(rate.timeline.get()));
  }
}

// False when a rate names a timeline that is not there.
bool GetRates(Cursor& in, std::vector<Scenario::RateChange>* rates) {
  std::vector<std::shared_ptr<const FrameTimeline>> timelines;
  auto timelineCount = in.Get<uint32_t>();
  for (uint32_t i = 0; i < timelineCount && in.ok(); ++i) {
    timelines.push_back(GetTimeline(in));
    if (timelines.back() == nullptr) return false;
  }
  auto count = in.Get<uint64_t>();
  for (uint64_t i = 0; i < count && in.ok(); ++i) {
    Scenario::RateChange rate;
    rate.atMs = in.Get<int64_t>();
    rate.fps = in.Get<float>();
    auto timeline = in.Get<int32_t>();
    if (timeline >= static_cast<int64_t>(timelines.size()) || timeline < -1) return false;
    if (timeline >= 0) rate.timeline = timelines[static_cast<size_t>(timeline)];
    rates->push_back(std::move(rate));
  }
  return true;
}

void PutTexts(std::string* out, const std::vector<std::string>& texts) {
  Put(out, static_cast<uint64_t>(texts.size()));
  for (const std::string& text : texts) PutText(out, text);
}

std::vector<std::string> GetTexts(Cursor& in) {
  std::vector<std::string> texts;
  auto count = in.Get<uint64_t>();
  for (uint64_t i = 0; i < count && in.ok(); ++i) texts.push_back(in.Text());
  return texts;
}

void PutEvents(std::string* out, const Scenario& scenario) {
  Put(out, static_cast<uint64_t>(scenario.triggers.size()));
  for (const Scenario::Trigger& trigger : scenario.triggers) {
    Put(out, trigger.atMs);
    Put(out, static_cast<int32_t>(trigger.id));
    PutText(out, trigger.component);
    Put(out, static_cast<int32_t>(trigger.value));
  }
  Put(out, static_cast<uint64_t>(scenario.faults.size()));
  for (const Scenario::Fault& fault : scenario.faults) {
    Put(out, fault.atMs);
    Put(out, static_cast<uint8_t>(fault.kind));
  }
}

// False when a fault's kind is not one of ours.
bool GetEvents(Cursor& in, Scenario* scenario) {
  auto triggers = in.Get<uint64_t>();
  for (uint64_t i = 0; i < triggers && in.ok(); ++i) {
    Scenario::Trigger trigger{};
    trigger.atMs = in.Get<int64_t>();
    trigger.id = in.Get<int32_t>();
    trigger.component = in.Text();
    trigger.value = in.Get<int32_t>();
    scenario->triggers.push_back(std::move(trigger));
  }
  auto faults = in.Get<uint64_t>();
  for (uint64_t i = 0; i < faults && in.ok(); ++i) {
    Scenario::Fault fault{};
    fault.atMs = in.Get<int64_t>();
    auto kind = in.Get<uint8_t>();
    if (kind > static_cast<uint8_t>(Scenario::FaultKind::PerfLockOk)) return false;
    fault.kind = static_cast<Scenario::FaultKind>(kind);
    scenario->faults.push_back(fault);
  }
  return true;
}

void PutSetUp(std::string* out, const Scenario& scenario) {
  PutText(out, scenario.name);
  Put(out, static_cast<uint64_t>(scenario.properties.size()));
  for (const auto& [name, value] : scenario.properties) {
    PutText(out, name);
    PutText(out, value);
  }
  Put(out, static_cast<uint64_t>(scenario.apps.size()));
  for (const auto& [name, app] : scenario.apps) {
    PutText(out, name);
    Put(out, static_cast<int32_t>(app.appClass));
    Put(out, static_cast<int32_t>(app.pid));
  }
  PutTexts(out, scenario.ignoreList);
  PutTexts(out, scenario.meters);
  Put(out, static_cast<int32_t>(scenario.meterLatencyMs));
  Put(out, scenario.endMs);
  Put(out, scenario.latestMs);
}

void GetSetUp(Cursor& in, Scenario* scenario) {
  scenario->name = in.Text();
  auto properties = in.Get<uint64_t>();
  for (uint64_t i = 0; i < properties && in.ok(); ++i) {
    std::string name = in.Text();
    scenario->properties.emplace_back(std::move(name), in.Text());
  }
  auto apps = in.Get<uint64_t>();
  for (uint64_t i = 0; i < apps && in.ok(); ++i) {
    std::string name = in.Text();
    Scenario::App app;
    app.appClass = in.Get<int32_t>();
    app.pid = in.Get<int32_t>();
    scenario->apps[name] = app;
  }
  scenario->ignoreList = GetTexts(in);
  scenario->meters = GetTexts(in);
  scenario->meterLatencyMs = in.Get<int32_t>();
  scenario->endMs = in.Get<int64_t>();
  scenario->latestMs = in.Get<int64_t>();
}

}  // namespace

namespace RunRequest {

std::string Encode(const Scenario& scenario, const Settings& settings) {
  std::string out;
  PutText(&out, Magic());
  PutText(&out, settings.pluginPath);
  Put(&out, static_cast<uint8_t>(settings.realtime ? 1 : 0));
  PutText(&out, settings.sysfsPath);
  PutSetUp(&out, scenario);
  PutRates(&out, scenario.rates);
  PutEvents(&out, scenario);
  return out;
}

bool Decode(std::string_view data, Scenario* scenario, Settings* settings) {
  Cursor in(data);
  if (in.Text() != Magic()) return false;
  settings->pluginPath = in.Text();
  auto realtime = in.Get<uint8_t>();
  settings->realtime = realtime == 1;
  settings->sysfsPath = in.Text();
  GetSetUp(in, scenario);
  return realtime <= 1 && GetRates(in, &scenario->rates) && GetEvents(in, scenario) && in.done();
}

}  // namespace RunRequest

// Frame-rate collection: the data manager's row and queue, the averaging,
// the stored trigger payload, and the meta meter's hand-over of readings.
#include <android-base/properties.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "data/GorvDataManager.h"
#include "feature/GorvFeature.h"
#include "host/platform/HostEnv.h"
#include "intervals/GorvIntervalsCounter.h"
#include "meter/GorvMetaMeter.h"
#include "tests/support/LogCapture.h"

namespace {
// Counts allocations; throws std::bad_alloc from the next one while armed.
int gAllocations = 0;
bool gFailNext = false;
}  // namespace

void* operator new(std::size_t size) {
  ++gAllocations;
  if (gFailNext) {
    gFailNext = false;
    throw std::bad_alloc();
  }
  if (void* p = std::malloc(size == 0 ? 1 : size)) return p;
  throw std::bad_alloc();
}
// Every form that can reach the replaced delete comes from malloc here, so
// sanitizers see matching pairs.
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  ++gAllocations;
  return std::malloc(size == 0 ? 1 : size);
}
// GCC 12 at -O2 inlines these into callers and takes free() for a mismatch
// with operator new, which here comes from malloc as well.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
void operator delete(void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
void operator delete(void* p, const std::nothrow_t&) noexcept { std::free(p); }
#pragma GCC diagnostic pop

namespace {

using Lines = std::vector<std::string>;

class DataCollectionTest : public ::testing::Test {
 protected:
  void SetUp() override {
    gorv::HostEnv::Get().Reset();
    gorv::HostEnv::Get().UseVirtualClock();
    android::base::SetProperty("ro.vendor.perf.gorv", "true");
    android::base::SetProperty("vendor.debug.trace.gorv", "");
    MakeFeature({"Fps"});
  }
  void MakeFeature(const std::vector<std::string>& meters) {
    FeatureInfo info;
    for (const std::string& name : meters) info.meterInfos.push_back({name, {}});
    feature = std::make_unique<GorvFeature>(info);
    meter = static_cast<GorvMetaMeter*>(feature->metaMeter);
    data = std::make_unique<GorvDataManager>(meter, meter->mMeterRequests);
  }
  // The average of the queue as the action reads it.
  float Average(int interval, int duration) {
    std::vector<float> out;
    EXPECT_EQ(data->getFPS(&out, interval, duration), 0);
    EXPECT_EQ(out.size(), 1u);
    return out.empty() ? -1.0f : out[0];
  }

  std::unique_ptr<GorvFeature> feature;
  GorvMetaMeter* meter = nullptr;
  std::unique_ptr<GorvDataManager> data;
};

TEST_F(DataCollectionTest, ConsumersTightenTheRowUntilItIsRegistered) {
  const DataElem& row = data->mDataElems[FPS];
  EXPECT_EQ(row.name, "Fps");
  EXPECT_EQ(data->registerDataElem(0, 0, 400), -1);
  EXPECT_EQ(data->registerDataElem(0, 200, 0), -1);
  EXPECT_EQ(data->registerDataElem(0, 200, 400), 0);
  EXPECT_EQ((std::vector<int>{row.minInterval, row.maxInterval, row.queueSize}),
            (std::vector<int>{200, 400, 2}));
  EXPECT_EQ(data->registerDataElem(0, 100, 400), 0);
  EXPECT_EQ(row.queueSize, 4);

  LogCapture logs;
  EXPECT_EQ(data->registerDataElem(0, 10, 1000), 0);
  EXPECT_EQ((std::vector<int>{row.minInterval, row.maxInterval, row.queueSize}),
            (std::vector<int>{10, 1000, 64}));
  EXPECT_EQ(logs.Messages(),
            Lines{"GORV_DATAMGR: registerDataElem() N: Queue Squeez, Requested more than MAX\n"});

  data->dataRegistryComp(nullptr);
  EXPECT_FALSE(data->mRegistered);
  GorvIntervalsCounter counter;
  data->dataRegistryComp(&counter);
  EXPECT_EQ(data->registerDataElem(0, 200, 400), -1);
  EXPECT_EQ(row.minInterval, 10);
  // "Fps" with the row's period and delay, then "MetersTrig" on the
  // counter's wake-up time; newest first.
  ASSERT_EQ(counter.mTimeKeepers.size(), 2u);
  EXPECT_EQ(counter.mTimeKeepers[0].mName, "MetersTrig");
  EXPECT_EQ(counter.mTimeKeepers[1].mName, "Fps");
  EXPECT_EQ(counter.mTimeKeepers[0].mPeriod, 10);
  EXPECT_EQ(counter.mWakeUpTime, 10);
}

TEST_F(DataCollectionTest, AnUnregisteredRowOffersUnsetLimitsWhichTheCounterRefuses) {
  LogCapture logs;
  GorvIntervalsCounter counter;
  data->dataRegistryComp(&counter);
  EXPECT_TRUE(counter.mTimeKeepers.empty());
  EXPECT_EQ(logs.Messages(), (Lines{"GORV_IC: registerIntervals() N: Unexpected Intervals  -1--1",
                                    "GORV_IC: registerIntervals() N: Unexpected Intervals  -1--1"}));
}

TEST_F(DataCollectionTest, AveragingDividesByTheSamplesTheDurationShouldHold) {
  data->mFpsQueue = {30, 60};
  EXPECT_FLOAT_EQ(Average(200, 400), 45.0f);
  data->mFpsQueue = {30, 60, 90};
  EXPECT_FLOAT_EQ(Average(200, 400), 90.0f);
  data->mFpsQueue = {};
  EXPECT_FLOAT_EQ(Average(200, 400), 0.0f);
  data->mFpsQueue = {30};
  EXPECT_TRUE(std::isinf(Average(400, 200)));
  data->mFpsQueue = {};
  EXPECT_TRUE(std::isnan(Average(400, 200)));

  EXPECT_EQ(data->getFPS(nullptr, 200, 400), -1);
  std::vector<float> out;
  EXPECT_EQ(data->getFPS(&out, 0, 400), 0);
  EXPECT_TRUE(out.empty());
  LogCapture logs;
  out = {1.0f};
  EXPECT_EQ(data->getFPS(&out, 200, 400), 0);
  EXPECT_EQ(out.size(), 1u);
  EXPECT_EQ(logs.Messages(), Lines{"GORV_DATAMGR: processData() N: required empty container\n"});
}

TEST_F(DataCollectionTest, GetDataRefusesBadRequestsAndFinerPeriods) {
  data->registerDataElem(0, 200, 400);
  std::vector<float> out;
  LogCapture logs;
  EXPECT_EQ(data->getData(FPS, nullptr, 200, 400), -1);
  EXPECT_EQ(data->getData(static_cast<DataMapper>(1), &out, 200, 400), -1);
  EXPECT_EQ(data->getData(FPS, &out, 0, 400), -1);
  EXPECT_EQ(data->getData(FPS, &out, 200, 0), -1);
  EXPECT_EQ(logs.Messages(), Lines(4, "GORV_DATAMGR: getData() N: Key Not Found- Improper init\n"));
  logs.Clear();
  EXPECT_EQ(data->getData(FPS, &out, 100, 400), -1);
  EXPECT_TRUE(logs.Messages().empty());
  data->mFpsQueue = {50, 70};
  EXPECT_EQ(data->getData(FPS, &out, 200, 400), 0);
  EXPECT_EQ(out, std::vector<float>{60.0f});
}

TEST_F(DataCollectionTest, TheQueueKeepsItsSizeOnlyOnceAConsumerRegistered) {
  meter->mFps = 10.0f;
  for (float fps : {10.0f, 20.0f, 30.0f}) {
    meter->mFps = fps;
    data->collectFPS(nullptr);
  }
  EXPECT_EQ(data->mFpsQueue, (std::vector<float>{10, 20, 30}));  // size -1: never trimmed

  data->registerDataElem(0, 200, 400);
  data->collectFPS(nullptr);
  EXPECT_EQ(data->mFpsQueue, (std::vector<float>{20, 30, 30}));  // one removed, one added
  data->collectFPS(nullptr);
  EXPECT_EQ(data->mFpsQueue.size(), 3u);  // an overlong queue is trimmed one at a time
  data->reset();
  for (int i = 0; i < 5; ++i) data->collectFPS(nullptr);
  EXPECT_EQ(data->mFpsQueue.size(), 2u);
  data->reset();
  EXPECT_TRUE(data->mFpsQueue.empty());
}

TEST_F(DataCollectionTest, RequestsAreSetOnlyForConfiguredMeters) {
  std::string fps = "Fps";
  std::string gpu = "Gpu";
  data->prepareMeter(&gpu);
  data->prepareMeter(nullptr);
  EXPECT_EQ(meter->mMeterRequests.size(), 1u);
  EXPECT_FALSE(meter->mMeterRequests.at("Fps").load());
  data->prepareMeter(&fps);
  EXPECT_TRUE(meter->mMeterRequests.at("Fps").load());
}

TEST_F(DataCollectionTest, AManagerWithoutAMeterHasAnEmptyRow) {
  GorvDataManager empty(nullptr, meter->mMeterRequests);
  EXPECT_EQ(empty.mDataElems[FPS].name, "");
  std::vector<float> out;
  EXPECT_THROW(empty.getData(FPS, &out, 200, 400), std::bad_function_call);
  LogCapture logs;
  empty.collectFPS(nullptr);
  empty.collectTrigger(nullptr);
  EXPECT_EQ(logs.Messages(), (Lines{"GORV_DATAMGR: collectFPS() N: mMetaMeter not available\n ",
                                    "GORV_DATAMGR: collectTrigger() N: mMetaMeter not available\n "}));
  EXPECT_TRUE(empty.mFpsQueue.empty());
}

TEST_F(DataCollectionTest, AFailedPayloadCopyIsRecognisable) {
  AsyncTriggerPayload payload;
  payload.triggerId = 4097;
  payload.triggerValue = 7;
  payload.component = "com.example.a.rather.long.package.name";
  payload.args = {1, 2, 3};
  payload.cookie = 99;
  data->setTriggerPayload(payload);
  EXPECT_EQ(data->mTriggerPayload.component, payload.component);
  EXPECT_EQ(data->mTriggerPayload.args, payload.args);
  EXPECT_EQ(data->mTriggerPayload.cookie, 99);

  LogCapture logs;
  payload.triggerId = 4099;
  payload.component += ".that.needs.a.bigger.buffer.than.before";
  gFailNext = true;
  data->setTriggerPayload(payload);
  EXPECT_EQ(data->mTriggerPayload.triggerId, 4099);  // copied before the failure
  EXPECT_EQ(data->mTriggerPayload.triggerValue, -1);
  EXPECT_EQ(data->mTriggerPayload.component, "");
  EXPECT_EQ(logs.Messages(),
            Lines{"GORV_DATAMGR: setTriggerPayload() N: processData- exception std::bad_alloc\n"});
}

TEST_F(DataCollectionTest, CopyingARegisteredTaskOrTheRowAllocatesNothing) {
  GorvIntervalsCounter& counter = *feature->mIntervalsCounter;
  int before = gAllocations;
  for (const TimeKeeper& keeper : counter.mTimeKeepers) {
    IntervalCallback task = keeper.mTask;
    IntervalCallback hook = keeper.mOnTrigger;
    TimeKeeper copy = keeper;
  }
  DataElem row = data->mDataElems[FPS];
  EXPECT_EQ(gAllocations, before);
}

// Finished meters as the framework hands them over.
class MetersTest : public DataCollectionTest {
 protected:
  bool Deliver(std::initializer_list<Meter*> meters) { return meter->writeToDataBase(meters); }
  std::vector<std::string> TraceSections() {
    std::vector<std::string> names;
    for (const gorv::HostEvent& event : gorv::HostEnv::Get().TraceEvents()) {
      names.push_back(event.kind == gorv::HostEvent::Kind::TraceBegin ? event.name : "end");
    }
    return names;
  }
};

TEST_F(MetersTest, ARequestedFpsReadingIsTakenOnce) {
  FpsMeter fps("Fps", 58.0f);
  FpsMeter second("Fps", 30.0f);
  Meter other("Gpu");
  EXPECT_FALSE(Deliver({}));
  EXPECT_TRUE(Deliver({nullptr, nullptr}));
  EXPECT_TRUE(Deliver({&fps}));  // not requested: ignored
  EXPECT_EQ(meter->mFps.load(), 0.0f);

  meter->mMeterRequests.at("Fps") = true;
  EXPECT_TRUE(Deliver({&other, nullptr, &fps, &second}));
  EXPECT_EQ(meter->mFps.load(), 58.0f);  // the first withdrew the request
  EXPECT_FALSE(meter->mMeterRequests.at("Fps").load());
  EXPECT_TRUE(Deliver({&second}));
  EXPECT_EQ(meter->mFps.load(), 58.0f);

  FpsMeter upper("FPS", 90.0f);
  FpsMeter blank("Fps ", 90.0f);
  meter->mMeterRequests.at("Fps") = true;
  EXPECT_TRUE(Deliver({&upper, &blank}));
  EXPECT_EQ(meter->mFps.load(), 58.0f);
  EXPECT_EQ(meter->getMeterSnapshot(), nullptr);
}

TEST_F(MetersTest, MetersBuiltFromTheDescriptionsAndAnUnconfiguredFpsMeter) {
  MakeFeature({"Fps", "Gpu", "Fps"});
  EXPECT_EQ(meter->mMeterRequests.size(), 2u);
  EXPECT_EQ(meter->mMeterRequests.max_load_factor(), 1.0f);

  MakeFeature({"Gpu"});
  FpsMeter fps("Fps", 60.0f);
  EXPECT_TRUE(Deliver({&fps}));
  EXPECT_EQ(meter->mMeterRequests.count("Fps"), 1u);  // recorded, never read
  EXPECT_EQ(meter->mFps.load(), 0.0f);
}

TEST_F(MetersTest, TheTraceMarkerNeedsTracingAndTheAlwaysTag) {
  FpsMeter fps("Fps", 60.0f);
  Deliver({&fps});
  EXPECT_TRUE(TraceSections().empty());

  android::base::SetProperty("vendor.debug.trace.gorv", "1");
  MakeFeature({"Fps"});
  EXPECT_FALSE(Deliver({}));
  Deliver({&fps});
  meter->mMeterRequests.at("Fps") = true;
  Deliver({&fps});
  EXPECT_EQ(TraceSections(), (Lines{"Meters finished, fps = 0.000000 \n", "end",
                                    "Meters finished, fps = 60.000000 \n", "end"}));
  gorv::HostEnv::Get().ClearEvents();
  gorv::HostEnv::Get().SetTraceAlwaysTagEnabled(false);
  Deliver({&fps});
  EXPECT_TRUE(TraceSections().empty());
}

}  // namespace

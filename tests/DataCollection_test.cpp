// Frame-rate collection: the data manager's row and queue, the averaging,
// the stored trigger payload, and the meta meter's hand-over of readings.
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include "data/GorvDataManager.h"
#include "intervals/GorvIntervalsCounter.h"
#include "tests/support/AllocationFault.h"
#include "tests/support/FeatureTest.h"
#include "tests/support/LogCapture.h"

namespace {

// A data manager of its own beside the feature's, on the feature's meter.
class DataCollectionTest : public FeatureTest {
 protected:
  void SetUp() override {
    FeatureTest::SetUp();
    data = std::make_unique<GorvDataManager>(&meter(), meter().mMeterRequests);
  }
  void TearDown() override { CountAllocations(false); }
  // The average of the queue as the action reads it.
  float Average(std::vector<float> queue, int interval, int duration) {
    data->mFpsQueue = std::move(queue);
    std::vector<float> out;
    EXPECT_EQ(data->getData(FPS, &out, interval, duration), 0);
    return out.size() == 1 ? out[0] : -1.0f;
  }
  bool Deliver(std::initializer_list<Meter*> meters) { return meter().writeToDataBase(meters); }

  std::unique_ptr<GorvDataManager> data;
};

TEST_F(DataCollectionTest, ConsumersTightenTheRowUntilItIsRegistered) {
  LogCapture logs;
  GorvIntervalsCounter unset;
  data->dataRegistryComp(&unset);  // the row's limits are still unset: refused
  EXPECT_TRUE(unset.mTimeKeepers.empty());
  data->mRegistered = false;

  const DataElem& row = data->mDataElems[FPS];
  EXPECT_EQ(row.name, "Fps");
  EXPECT_EQ(data->registerDataElem(0, 0, 400), -1);
  EXPECT_EQ(data->registerDataElem(0, 200, 0), -1);
  auto limits = [&row] {
    return std::vector<int>{row.minInterval, row.maxInterval, row.queueSize};
  };
  EXPECT_EQ(data->registerDataElem(0, 200, 400), 0);
  EXPECT_EQ(limits(), (std::vector<int>{200, 400, 2}));
  EXPECT_EQ(data->registerDataElem(0, 100, 400), 0);
  EXPECT_EQ(row.queueSize, 4);
  EXPECT_EQ(data->registerDataElem(0, 10, 1000), 0);
  EXPECT_EQ(limits(), (std::vector<int>{10, 1000, 64}));
  EXPECT_EQ(logs.Messages(),
            (Lines{"GORV_IC: registerIntervals() N: Unexpected Intervals  -1--1",
                   "GORV_IC: registerIntervals() N: Unexpected Intervals  -1--1",
                   "GORV_DATAMGR: registerDataElem() N: Queue Squeez, Requested more than MAX\n"}));

  data->dataRegistryComp(nullptr);
  EXPECT_FALSE(data->mRegistered);
  GorvIntervalsCounter counter;
  data->dataRegistryComp(&counter);
  EXPECT_EQ(data->registerDataElem(0, 200, 400), -1);
  EXPECT_EQ(row.minInterval, 10);
}

TEST_F(DataCollectionTest, AveragingDividesByTheSamplesTheDurationShouldHoldAndRefusesBadRequests) {
  EXPECT_FLOAT_EQ(Average({30, 60}, 200, 400), 45.0f);
  EXPECT_FLOAT_EQ(Average({30, 60, 90}, 200, 400), 90.0f);
  EXPECT_FLOAT_EQ(Average({}, 200, 400), 0.0f);
  EXPECT_TRUE(std::isinf(Average({30}, 400, 200)));
  EXPECT_TRUE(std::isnan(Average({}, 400, 200)));
  EXPECT_EQ(data->getFPS(nullptr, 200, 400), -1);
  std::vector<float> out;
  EXPECT_EQ(data->getFPS(&out, 0, 400), 0);
  EXPECT_TRUE(out.empty());

  data->registerDataElem(0, 200, 400);
  LogCapture logs;
  out = {1.0f};
  EXPECT_EQ(data->getFPS(&out, 200, 400), 0);
  EXPECT_EQ(out.size(), 1u);
  EXPECT_EQ(data->getData(FPS, nullptr, 200, 400), -1);
  EXPECT_EQ(data->getData(static_cast<DataMapper>(1), &out, 200, 400), -1);
  EXPECT_EQ(data->getData(FPS, &out, 0, 400), -1);
  EXPECT_EQ(data->getData(FPS, &out, 200, 0), -1);
  Lines refused(4, "GORV_DATAMGR: getData() N: Key Not Found- Improper init\n");
  refused.insert(refused.begin(), "GORV_DATAMGR: processData() N: required empty container\n");
  EXPECT_EQ(logs.Messages(), refused);
}

TEST_F(DataCollectionTest, TheQueueKeepsItsSizeOnlyOnceAConsumerRegistered) {
  for (float fps : {10.0f, 20.0f, 30.0f}) {
    meter().mFps = fps;
    data->collectFPS(nullptr);
  }
  EXPECT_EQ(data->mFpsQueue, (std::vector<float>{10, 20, 30}));  // size -1: never trimmed

  data->registerDataElem(0, 200, 400);
  data->collectFPS(nullptr);
  EXPECT_EQ(data->mFpsQueue, (std::vector<float>{20, 30, 30}));  // one removed, one added
  data->collectFPS(nullptr);
  EXPECT_EQ(data->mFpsQueue.size(), 3u);  // an overlong queue is trimmed one at a time
  // The sessions keep a queue at its size and see a reset empty it.
}

TEST_F(DataCollectionTest, AManagerWithoutAMeterHasAnEmptyRow) {
  GorvDataManager empty(nullptr, meter().mMeterRequests);
  std::vector<float> out;
  EXPECT_THROW(empty.getData(FPS, &out, 200, 400), std::bad_function_call);
  LogCapture logs;
  empty.collectFPS(nullptr);
  empty.collectTrigger(nullptr);
  EXPECT_EQ(logs.Messages(),
            (Lines{"GORV_DATAMGR: collectFPS() N: mMetaMeter not available\n ",
                   "GORV_DATAMGR: collectTrigger() N: mMetaMeter not available\n "}));
}

TEST_F(DataCollectionTest, AFailedPayloadCopyIsRecognisableAndTasksCopyWithoutAllocating) {
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
  ArmAllocationFailure(1, Allocations::kAll);
  data->setTriggerPayload(payload);
  CountAllocations(false);
  EXPECT_EQ(data->mTriggerPayload.triggerId, 4099);  // copied before the failure
  EXPECT_EQ(data->mTriggerPayload.triggerValue, -1);
  EXPECT_EQ(data->mTriggerPayload.component, "");
  EXPECT_EQ(logs.Messages(),
            Lines{"GORV_DATAMGR: setTriggerPayload() N: processData- exception std::bad_alloc\n"});

  // The periodic thread copies the due tasks on every wake-up.
  ArmAllocationFailure(0, Allocations::kAll);
  for (const TimeKeeper& keeper : feature->mIntervalsCounter->mTimeKeepers) {
    IntervalCallback task = keeper.mTask;
    IntervalCallback hook = keeper.mOnTrigger;
    TimeKeeper copy = keeper;
  }
  DataElem row = data->mDataElems[FPS];
  EXPECT_EQ(CountedAllocations(), 0);
}

TEST_F(DataCollectionTest, ARequestedFpsReadingIsTakenOnce) {
  std::string fps = "Fps";
  std::string gpu = "Gpu";
  data->prepareMeter(&gpu);  // only configured meters are requested
  data->prepareMeter(nullptr);
  EXPECT_EQ(meter().mMeterRequests.size(), 1u);
  EXPECT_FALSE(meter().mMeterRequests.at("Fps").load());

  FpsMeter reading("Fps", 58.0f);
  FpsMeter second("Fps", 30.0f);
  Meter other("Gpu");
  EXPECT_FALSE(Deliver({}));
  EXPECT_TRUE(Deliver({nullptr, nullptr}));
  EXPECT_TRUE(Deliver({&reading}));  // not requested: ignored
  EXPECT_EQ(meter().mFps.load(), 0.0f);

  data->prepareMeter(&fps);
  EXPECT_TRUE(Deliver({&other, nullptr, &reading, &second}));
  EXPECT_EQ(meter().mFps.load(), 58.0f);  // the first withdrew the request
  EXPECT_FALSE(meter().mMeterRequests.at("Fps").load());
  EXPECT_TRUE(Deliver({&second}));
  EXPECT_EQ(meter().mFps.load(), 58.0f);

  FpsMeter upper("FPS", 90.0f);
  FpsMeter blank("Fps ", 90.0f);
  data->prepareMeter(&fps);
  EXPECT_TRUE(Deliver({&upper, &blank}));
  EXPECT_EQ(meter().mFps.load(), 58.0f);
  EXPECT_EQ(meter().getMeterSnapshot(), nullptr);
}

TEST_F(DataCollectionTest, MetersBuiltFromTheDescriptionsAndAnUnconfiguredFpsMeter) {
  info.meterInfos = {{"Fps", {}}, {"Gpu", {}}, {"Fps", {}}};
  Make();
  EXPECT_EQ(meter().mMeterRequests.size(), 2u);

  info.meterInfos = {{"Gpu", {}}};
  Make();
  FpsMeter fps("Fps", 60.0f);
  EXPECT_TRUE(Deliver({&fps}));
  EXPECT_EQ(meter().mMeterRequests.count("Fps"), 1u);  // recorded, never read
  EXPECT_EQ(meter().mFps.load(), 0.0f);
}

// Its text is pinned by the simulator's traces.
TEST_F(DataCollectionTest, TheMarkerIsASectionThatEnds) {
  Make("true", "1");
  FpsMeter fps("Fps", 60.0f);
  Deliver({&fps});
  std::vector<gorv::HostEvent::Kind> kinds;
  for (const gorv::HostEvent& event : env().TraceEvents()) kinds.push_back(event.kind);
  EXPECT_EQ(kinds,
            (std::vector{gorv::HostEvent::Kind::TraceBegin, gorv::HostEvent::Kind::TraceEnd}));
}

}  // namespace

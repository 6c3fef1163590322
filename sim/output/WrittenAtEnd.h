// The sink of an output written whole at End (the trace, the plot): a
// `State` is made from the RunInfo at Begin, takes every event, writes the
// output to the stream at End and is dropped. State provides
// State(const RunInfo&), void Add(const SimEvent&) and
// void Write(const RunEnd&, std::ostream&). The stream is not owned and
// must outlive End. Single-threaded.
#pragma once

#include <memory>
#include <ostream>

#include "sim/output/RunSink.h"

template <class State>
class WrittenAtEnd : public RunSink {
 public:
  explicit WrittenAtEnd(std::ostream& out) : mOut(out) {}
  void Begin(const RunInfo& info) override { mState = std::make_unique<State>(info); }
  void Event(const SimEvent& event) override { mState->Add(event); }
  void End(const RunEnd& end) override {
    mState->Write(end, mOut);
    mOut.flush();
    mState.reset();
  }

 private:
  std::ostream& mOut;
  std::unique_ptr<State> mState;  // from Begin to End
};

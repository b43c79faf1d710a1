// The golden transcripts replayed through a pty into the real line runner, every byte and result
// checked; and recorded again with the simulators, byte for byte the same.
#include <gtest/gtest.h>

#include "comm/pty_pair.h"
#include "integration/transcript_fixture.h"

namespace clockcomm::test {
namespace {

using namespace std::chrono_literals;
using Kind = sim::TranscriptStep::Kind;

std::vector<std::string> TranscriptNames() {
  std::vector<std::string> names;
  for (const auto& e : std::filesystem::directory_iterator(kTranscripts)) {
    if (e.path().extension() == ".chat") names.push_back(e.path().stem().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

// True when every expected line appears in actual, in the same order (others may come between).
bool InOrder(const std::vector<std::string>& expected, const std::vector<std::string>& actual) {
  auto at = actual.begin();
  for (const auto& line : expected) {
    at = std::find(at, actual.end(), line);
    if (at == actual.end()) return false;
    ++at;
  }
  return true;
}

class TranscriptTest : public TranscriptFixture, public ::testing::WithParamInterface<std::string> {
 protected:
  // Plays the far end; returns what went wrong, "" when the program said every byte expected.
  std::string Play(const sim::Transcript& transcript, comm::IConnection& far) {
    std::string received;
    for (size_t i = 0; i < transcript.steps.size(); ++i) {
      const auto& step = transcript.steps[i];
      const std::string where = "step " + std::to_string(i + 1) + ": ";
      if (step.kind == Kind::kFarEnd) {
        far.WriteText(step.text);
      } else if (step.kind == Kind::kSync) {
        if (!screen_.WaitFor(step.text, 10s)) return where + "never shown: " + step.text;
      } else {
        const auto deadline = std::chrono::steady_clock::now() + 10s;
        while (received.size() < step.text.size() &&
               far.WaitForInput(deadline, {}) == comm::WaitResult::kReadable) {
          received += far.Read();
        }
        if (received.compare(0, step.text.size(), step.text) != 0) {
          return where + "expected < " + sim::EscapeBytes(step.text) + "\n got     < " +
                 sim::EscapeBytes(received);
        }
        received.erase(0, step.text.size());
      }
    }
    return received.empty() ? "" : "more than the transcript: " + sim::EscapeBytes(received);
  }
};

TEST_P(TranscriptTest, ReplayedIntoTheRealLoop) {
  const auto transcript =
      sim::ParseTranscript(core::ReadWholeFile(kTranscripts / (GetParam() + ".chat")));
  const auto expected = ParseResults(core::ReadWholeFile(kTranscripts / (GetParam() + ".chk")));
  ASSERT_FALSE(transcript.header.empty()) << "a transcript says what it shows";

  auto pty = comm::PtyPair::Open();
  auto far = pty.TakeMaster();
  const std::string failure = RunLine(pty.SlavePath(), transcript, [&] {
    std::string what = Play(transcript, *far);
    // A failed replay, or one whose far end ends the run, presses End so that the loop stops.
    if (!what.empty() || transcript.Setting("run") == "host-end") controller_->PressEnd();
    return what;
  });
  EXPECT_EQ(failure, "") << screen_.All();
  EXPECT_EQ(sim::EscapeBytes(far->Read()), "") << "the program said more than the transcript";

  const CallResults actual = Results();
  EXPECT_EQ(actual.counters, expected.counters);
  EXPECT_EQ(actual.tcd, expected.tcd);
  EXPECT_EQ(actual.rows, expected.rows);
  EXPECT_TRUE(InOrder(expected.screen, actual.screen)) << FormatResults(actual);
  EXPECT_TRUE(InOrder(expected.events, actual.events)) << FormatResults(actual);
}

INSTANTIATE_TEST_SUITE_P(Golden, TranscriptTest, ::testing::ValuesIn(TranscriptNames()),
                         [](const auto& name) { return name.param; });

// The tap, the transcript's writer and the simulators: a recording differs from the golden one
// when any of them changed what it does.
class RecordingTest : public TranscriptFixture, public ::testing::WithParamInterface<Scenario> {};

TEST_P(RecordingTest, RecordedAgainGivesTheGoldenFiles) {
  TempDir out;
  Record(GetParam(), out.path());
  for (const char* extension : {".chat", ".chk"}) {
    const std::string name = GetParam().name + extension;
    EXPECT_EQ(core::ReadWholeFile(out.path() / name), core::ReadWholeFile(kTranscripts / name))
        << name;
  }
}

INSTANTIATE_TEST_SUITE_P(Golden, RecordingTest, ::testing::ValuesIn(Scenarios()), ScenarioName);

}  // namespace
}  // namespace clockcomm::test

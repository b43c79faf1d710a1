// Records the golden transcripts of tests/transcripts anew (or into $CLOCKCOMM_TRANSCRIPTS): each
// scenario of transcript_fixture.h runs its simulators against the real line runner through a tap
// that writes down every byte. Not run by ctest, which records them into a temporary folder and
// compares; see tests/transcripts/README.md.
#include <gtest/gtest.h>

#include <cstdlib>

#include "integration/transcript_fixture.h"

namespace clockcomm::test {
namespace {

class RecordTranscripts : public TranscriptFixture,
                          public ::testing::WithParamInterface<Scenario> {};

TEST_P(RecordTranscripts, Record) {
  const char* out = std::getenv("CLOCKCOMM_TRANSCRIPTS");
  Record(GetParam(), out != nullptr ? std::filesystem::path(out) : kTranscripts);
}

INSTANTIATE_TEST_SUITE_P(Scenarios, RecordTranscripts, ::testing::ValuesIn(Scenarios()),
                         ScenarioName);

}  // namespace
}  // namespace clockcomm::test

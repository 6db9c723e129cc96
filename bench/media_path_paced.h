#pragma once

namespace bench {

class Sink;
class Table;

// How many ports the sink is to have, one for each stream.
constexpr int kPacedStreams = 500;

// That many streams at 4 Mbit/s and 25 frames a second at once, beside a bare sendto loop with the same packets at the
// same moments. The media service runs.
void MeasurePacedStreams(Sink& sink, Table& table);

}  // namespace bench

#pragma once

// The rows of the table, each measured in its own function, in table order.

struct BenchContext;

namespace Rows {
void oneTagReads(BenchContext &ctx);   // 1: drive against raw UDP and the bare Qt path
void againstModbus(BenchContext &ctx); // 2: drive against libmodbus over TCP
void pollCycle(BenchContext &ctx);     // 3: a planned poll cycle against one-tag reads
void planning(BenchContext &ctx);      // 4: planning 1 000 to 100 000 tags
void blockCutting(BenchContext &ctx);  // 5: cutting a block reply into records
void hostLoad(BenchContext &ctx);      // 6: processor time per read, answered and lost
void serialRead(BenchContext &ctx);    // 7: one-tag read over a pseudo-terminal
void scale(BenchContext &ctx);         // 8: drives on threads of their own
void objectCost(BenchContext &ctx);    // 9: time and memory of a drive object, and of a read plan
} // namespace Rows

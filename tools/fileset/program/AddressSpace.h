#pragma once

// Stacks and heaps of threads that have ended stay reserved, and so does what was freed between others: where address
// space is limited, that may be the room for a large object. Before the first thread, and before objects are read.
void SpareAddressSpace();

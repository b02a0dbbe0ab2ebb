// Keeps address space free for large objects where it is limited (`ulimit -v`). Otherwise the stacks and heaps of ended
// threads stay reserved, and so do freed blocks between others.
#pragma once

// Call it before the first thread is made and the first object read.
void SpareAddressSpace();

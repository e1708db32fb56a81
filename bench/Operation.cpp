#include "Operation.h"

Operations allOperations()
{
    Operations operations;
    add(operations, "empty", 0, "bare", [] { return true; });
    addOperations(operations);
    if (addPeers != nullptr) {
        addPeers(operations);
    }
    return operations;
}

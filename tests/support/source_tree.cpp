#include "support/temp_folder.h"

std::filesystem::path SourceTree() {
    return GVX_SOURCE_TREE;
}

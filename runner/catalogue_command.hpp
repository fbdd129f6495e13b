#pragma once

namespace pc::runner {
void list_types();   // the type names in catalogue order, one per line
void print_stats();  // the catalogue's totals as "name: value" lines
} // namespace pc::runner

// A shared object of its own that uses the enum texts.
#pragma once

[[gnu::visibility("default")]] const char* LevelTextOfOtherObject(int level);
[[gnu::visibility("default")]] const char* CategoryTextOfOtherObject(int category);

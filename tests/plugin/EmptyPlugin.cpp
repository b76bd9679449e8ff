// A plugin that loads cleanly but registers no type: what a map file line
// pointing at the wrong library leads to.

extern "C" int zetTestEmptyPlugin() { return 0; }

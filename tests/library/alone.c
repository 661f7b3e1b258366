/* Compiled with one public header in front. ISO C wants a declaration in a source. */
extern int alone;

// Never finishes loading.
for (;;) {}

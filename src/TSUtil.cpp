// The library's module entry and frame come here.

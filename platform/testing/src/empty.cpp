// placeholder so the library is never empty

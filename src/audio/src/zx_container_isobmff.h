// ISO base media files: MP4, M4A and 3GP.
#ifndef ZX_CONTAINER_ISOBMFF_H
#define ZX_CONTAINER_ISOBMFF_H

// Whether a file begins with a "ftyp" box that names one of the brands that can be read.
bool zx_container_isobmff_is_compatible_file(const char *path);
bool zx_container_isobmff_is_compatible_brand(const char *brand);  // 4 characters

#endif

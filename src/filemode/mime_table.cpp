// The 95 rows are fixed in content and order, the odd ones included on purpose (image/x-xbitmap
// gives bmp; text/htm is a row of its own beside text/html): a type always maps to the same
// extension, so the names of extracted files never change from one version to the next.
#include "filemode/mime_table.hpp"

#include <array>

namespace vormelt::filemode {
namespace {

constexpr std::array<MimeRow, kMimeRowCount> kRows = {{
    {"application/andrew-inset", "ez", ""},
    {"application/mac-binhex40", "hqx", ""},
    {"application/mac-compactpro", "cpt", ""},
    {"application/msword", "doc", ""},
    {"application/octet-stream", "bin_dms_lha_lzh_exe_dll", ""},
    {"application/oda", "oda", ""},
    {"application/pdf", "pdf", ""},
    {"application/postscript", "ai_eps_ps", "ps"},
    {"application/smil", "smil", "smi"},
    {"application/vnd.mif", "mif", ""},
    {"application/vnd.ms-excel", "xls", ""},
    {"application/vnd.wap.wbxml", "wbxml", ""},
    {"application/vnd.wap.wmlc", "wmlc", ""},
    {"application/vnd.wap.wmlscriptc", "wmlsc", ""},
    {"application/x-bcpio", "bcpio", ""},
    {"application/x-cdlink", "vcd", ""},
    {"application/x-chess-pgn", "pgn", ""},
    {"application/x-cpio", "cpio", ""},
    {"application/x-csh", "csh", ""},
    {"application/x-director", "dcr_dir_dxr", "dir"},
    {"application/x-dvi", "dvi", ""},
    {"application/x-futuresplash", "spl", ""},
    {"application/x-gtar", "gtar", ""},
    {"application/x-hdf", "hdf", ""},
    {"application/x-javascript", "js", ""},
    {"application/x-koan", "skp_skd_skt_skm", "skm"},
    {"application/x-latex", "latex", ""},
    {"application/x-netcdf", "nc_cdf", "cdf"},
    {"application/x-sh", "sh", ""},
    {"application/x-shar", "shar", ""},
    {"application/x-shockwave-flash", "swf", ""},
    {"application/x-stuffit", "sit", ""},
    {"application/x-sv4cpio", "sv4cpio", ""},
    {"application/x-sv4crc", "sv4crc", ""},
    {"application/x-tar", "tar", ""},
    {"application/x-tcl", "tcl", ""},
    {"application/x-tex", "tex", ""},
    {"application/x-texinfo", "texinfo", ""},
    {"application/x-troff", "t_tr_roff", "tr"},
    {"application/x-troff-man", "man", ""},
    {"application/x-troff-me", "me", ""},
    {"application/x-troff-ms", "ms", ""},
    {"application/x-ustar", "ustar", ""},
    {"application/x-wais-source", "src", ""},
    {"application/xhtml+xml", "xhtml", ""},
    {"application/zip", "zip", ""},
    {"audio/basic", "au_snd", "au"},
    {"audio/midi", "midi", "mid"},
    {"audio/mpeg", "mp3", ""},
    {"audio/x-aiff", "aiff", "aif"},
    {"audio/x-mpegurl", "mpu", ""},
    {"audio/x-pn-realaudio", "ram", ""},
    {"audio/x-pn-realaudio-plugin", "rpm", ""},
    {"audio/x-realaudio", "ra", ""},
    {"audio/x-wav", "wav", ""},
    {"chemical/x-pdb", "pdb", ""},
    {"chemical/x-xyz", "xyz", ""},
    {"image/bmp", "bmp", ""},
    {"image/gif", "gif", ""},
    {"image/ief", "ief", ""},
    {"image/jpeg", "jpeg", "jpg"},
    {"image/png", "png", ""},
    {"image/tiff", "tiff", "tif"},
    {"image/vnd.djvu", "djvu_djv", "djv"},
    {"image/vnd.wap.wbmp", "wbmp", ""},
    {"image/x-cmu-raster", "ras", ""},
    {"image/x-portable-anymap", "pnm", ""},
    {"image/x-portable-bitmap", "pbm", ""},
    {"image/x-portable-graymap", "pgm", ""},
    {"image/x-portable-pixmap", "ppm", ""},
    {"image/x-rgb", "rgb", ""},
    {"image/x-xbitmap", "bmp", ""},
    {"image/x-xpixmap", "xpm", ""},
    {"image/x-xwindowdump", "xwd", ""},
    {"model/iges", "igs_iges", "igs"},
    {"model/mesh", "msh_mesh_silo", "msh"},
    {"model/vrml", "wrl_vrml", "wrl"},
    {"text/css", "css", ""},
    {"text/htm", "htm", ""},
    {"text/html", "html", "htm"},
    {"text/plain", "txt", ""},
    {"text/richtext", "rtx", ""},
    {"text/rtf", "rtf", ""},
    {"text/sgml", "sgml", "sgm"},
    {"text/tab-separated-values", "tsv", ""},
    {"text/vnd.wap.wml", "wml", ""},
    {"text/vnd.wap.wmlscript", "wmls", ""},
    {"text/x-setext", "etx", ""},
    {"text/xml", "xml", ""},
    {"video/mpeg", "mpeg", "mpg"},
    {"video/quicktime", "mov", ""},
    {"video/vnd.mpegurl", "mxu", ""},
    {"video/x-msvideo", "avi", ""},
    {"video/x-sgi-movie", "movie", ""},
    {"x-conference/x-cooltalk", "ice", ""},
}};

}  // namespace

const MimeRow* MimeRows() { return kRows.data(); }

std::string ExtensionForType(std::string_view contentType, std::string_view fallback,
                             bool shortForm) {
  for (const MimeRow& row : kRows) {
    if (row.type != contentType) continue;
    return std::string(shortForm && !row.shortForm.empty() ? row.shortForm : row.extension);
  }
  return std::string(fallback);
}

}  // namespace vormelt::filemode

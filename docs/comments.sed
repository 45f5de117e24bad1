# The headers' plain comments as Doxygen reads them.
1s|^// |/// \\file\n/// |
s|^( *)//( \|$)|\1///\2|
s|([;,]) +// |\1 ///< |
s|^( {12,})/// |\1///< |
# Tags in prose are no HTML; code is indented by four and more.
/^ *\/\/\/     /!{
/\/\/\//s|([^\\])<(/?[a-z])|\1\\<\2|g
}

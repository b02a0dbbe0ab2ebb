# What doxygen reads of a header: the comment that opens the file becomes the file's description, and IOD_Msg gets the
# accessor pair of each attribute in IOD_Attributes.inc, which its macro makes for the compiler.
FNR == 1 && /^\/\// {
  print "/// @file"
  opening = 1
}
opening && /^\/\// {
  sub(/^\/\//, "///")
  print
  next
}
{ opening = 0 }
/#include <dicom\/IOD_Attributes.inc>/ {
  while ((getline line < "inc/dicom/IOD_Attributes.inc") > 0) {
    if (line !~ /^IOD_ATTRIBUTE/) continue
    split(line, part, /[(,] */)
    tag = substr(line, index(line, "Dicom_Tag(") + 10)
    gsub(/0x|\)/, "", tag)
    if (line ~ /Dicom_Dictionary/) tag = "a private attribute, Dicom_Dictionary::" substr(line, index(line, "KOLBA_"))
    sub(/\)$/, "", tag)
    print "/// The value (" tag "), or the null constant of its class when the attribute is absent."
    print part[3] " Get" part[2] "() const;"
    print "/// Stores a copy of `value` (" tag "). Returns 0, or -1 if the message can't take it, and is then unchanged."
    print "int Set" part[2] "(" part[3] " const& value);"
  }
  next
}
{ print }

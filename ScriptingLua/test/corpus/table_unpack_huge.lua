-- expect: error "too many results to unpack"
return table.unpack({}, 1, 1e8)

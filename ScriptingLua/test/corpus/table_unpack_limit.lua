-- expect: error any
return select("#", table.unpack({}, 1, 999999))

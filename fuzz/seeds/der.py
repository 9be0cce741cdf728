"""DER pieces the seed scripts put together by hand."""


def tlv(tag, body):
    n = len(body)
    head = bytes([n]) if n < 0x80 else (b'\x81' + bytes([n]) if n < 0x100 else
                                        b'\x82' + n.to_bytes(2, 'big'))
    return bytes([tag]) + head + body


def children(der):  # the elements inside one TLV
    def header(p):
        n = der[p + 1]
        if n < 0x80:
            return 2, n
        k = n & 0x7F
        return 2 + k, int.from_bytes(der[p + 2:p + 2 + k], 'big')
    h, n = header(0)
    p, end, out = h, h + n, []
    while p < end:
        hh, nn = header(p)
        out.append(der[p:p + hh + nn])
        p += hh + nn
    return out


def oid(dotted):
    arcs = [int(a) for a in dotted.split('.')]
    body = bytes([40 * arcs[0] + arcs[1]])
    for arc in arcs[2:]:
        chunk = [arc & 0x7F]
        while arc > 0x7F:
            arc >>= 7
            chunk.insert(0, 0x80 | (arc & 0x7F))
        body += bytes(chunk)
    return tlv(0x06, body)

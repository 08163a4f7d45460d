"""POP3 mailboxes that grow, and an SMTP server that counts: what was made, what arrived, when, and from which node."""

import asyncio
import collections
import threading
import time

Delivery = collections.namedtuple('Delivery', 'time box id peer')


class Mail:
    """One mailbox for each tree. A message has its mailbox and a number for its id."""

    def __init__(self, address, boxes, interval):
        self.address, self.interval = address, interval
        self.boxes = {box: {} for box in boxes}
        self.made = {}          # the moment, by id
        self.deliveries = []    # in their order
        self.largest_run = 0    # messages fetched in one session
        self.grows = True
        ready = threading.Event()
        threading.Thread(target=lambda: asyncio.run(self._serve(ready)), daemon=True).start()
        ready.wait()

    async def _serve(self, ready):
        await asyncio.start_server(self._pop, self.address, 110)
        await asyncio.start_server(self._smtp, self.address, 25)
        ready.set()
        number = 0
        while True:
            await asyncio.sleep(self.interval)
            number += 1
            for box, messages in self.boxes.items() if self.grows else ():
                name = f'{box}-{number}'
                self.made[name] = time.monotonic()
                messages[name] = (f'From: a@example.org\r\nTo: {box}@example.org\r\nSubject: {number}\r\n'
                                  f'Message-ID: <{name}@example.org>\r\nX-Id: {name}\r\n\r\ntext\r\n').encode()

    async def _pop(self, reader, writer):
        box, listed, deleted, fetched = '', [], set(), 0

        def say(*lines):
            writer.write(b''.join(line.encode() + b'\r\n' for line in lines))

        say('+OK')
        try:
            while line := await reader.readline():
                word, *rest = line.decode().split()
                if word == 'USER':
                    box = rest[0]
                    say('+OK')
                elif word == 'PASS':
                    listed = list(self.boxes[box].items())
                    say('+OK')
                elif word in ('UIDL', 'LIST') and not rest:
                    say('+OK', *(f'{i} {name if word == "UIDL" else len(text)}' for i, (name, text) in enumerate(listed, 1)), '.')
                elif word == 'RETR':
                    fetched += 1
                    self.largest_run = max(self.largest_run, fetched)
                    say('+OK', listed[int(rest[0]) - 1][1].decode() + '.')
                elif word == 'DELE':
                    deleted.add(listed[int(rest[0]) - 1][0])
                    say('+OK')
                elif word == 'QUIT':
                    for name in deleted:
                        self.boxes[box].pop(name, None)
                    say('+OK')
                    break
                else:
                    say('-ERR')
                await writer.drain()
        except OSError:
            pass
        writer.close()

    async def _smtp(self, reader, writer):
        peer = writer.get_extra_info('peername')[0]
        writer.write(b'220 sink\r\n')
        try:
            while line := await reader.readline():
                word = line[:4].upper()
                if word == b'DATA':
                    writer.write(b'354 go\r\n')
                    await writer.drain()
                    name = ''
                    while (line := await reader.readline()) != b'.\r\n':
                        if not line:
                            return
                        if line.startswith(b'X-Id: '):
                            name = line[6:].decode().strip()
                    self.deliveries.append(Delivery(time.monotonic(), name.split('-')[0], name, peer))
                writer.write({b'QUIT': b'221 bye\r\n', b'EHLO': b'250 sink\r\n'}.get(word, b'250 ok\r\n'))
                await writer.drain()
                if word == b'QUIT':
                    break
        except OSError:
            pass
        finally:
            writer.close()

    def last(self, box):
        """The last delivery of a mailbox, or None."""
        return next((d for d in reversed(self.deliveries) if d.box == box), None)

    def first(self, box, since, peers):
        """The first delivery of a mailbox from these addresses, of a message made since then, or None."""
        return next((d for d in list(self.deliveries) if d.box == box and d.peer in peers and self.made[d.id] > since), None)

    def times(self):
        """How often each message has arrived."""
        return collections.Counter(d.id for d in self.deliveries)

'use strict';
// All data of calls is inserted as text, never as markup.
(() => {
  const byId = id => document.getElementById(id);
  /** Returns the lines of the calls. The last line counts only when it is complete. */
  const lines = () =>
    byId('data')
      .textContent.split('\n')
      .slice(0, -1)
      .filter(line => line);

  // This is the hidden frame of a shown page: the same file, loaded again. It sends the new lines to the shown page.
  const live = /^\?live=(\d+)$/.exec(location.search);
  if (live) {
    addEventListener('DOMContentLoaded', () => {
      const all = lines();
      parent.postMessage({head: all[0], lines: all.slice(+live[1])}, '*');
    });
    return;
  }

  const archived = /\/days\/\d[^/]*$/.test(location.pathname);
  const base = archived ? '../' : '';
  const ROWS = 150; // the number of calls drawn at a time
  const BARS = 36; // of the small waveform in the list
  const FILTERS = ['heard', 'flawed'];
  const calls = new Map();
  let head = ''; // the first line of data, which identifies the page
  let taken = 0; // the number of lines of data that have been read
  let found = []; // calls that match the search, in order
  let drawn = 0;
  let shown = null; // the call on the right
  let player = null;

  // ---------------------------------------------------------------- helpers

  function h(tag, attributes, ...children) {
    const element = document.createElement(tag);
    for (const [name, value] of Object.entries(attributes || {})) {
      if (name.startsWith('on')) element.addEventListener(name.slice(2), value);
      else if (value !== false && value != null) element.setAttribute(name, value === true ? '' : value);
    }
    element.append(...children.flat().filter(child => child != null && child !== false));
    return element;
  }

  function svg(tag, attributes, ...children) {
    const element = document.createElementNS('http://www.w3.org/2000/svg', tag);
    for (const [name, value] of Object.entries(attributes)) element.setAttribute(name, value);
    element.append(...children);
    return element;
  }

  const icon = path => svg('svg', {viewBox: '0 0 24 24', 'aria-hidden': 'true'}, svg('path', {d: path}));
  const plural = (n, noun) => `${n.toLocaleString()} ${noun}${n === 1 ? '' : 's'}`;
  const format = options => new Intl.DateTimeFormat(undefined, options);
  const longDay = format({weekday: 'long', day: 'numeric', month: 'long', year: 'numeric'});
  const shortDay = format({weekday: 'short', day: 'numeric', month: 'short', year: 'numeric'});
  const clock = format({hour: '2-digit', minute: '2-digit', hourCycle: 'h23'});
  const clockSeconds = format({hour: '2-digit', minute: '2-digit', second: '2-digit', hourCycle: 'h23'});
  const two = n => String(n).padStart(2, '0');

  function isoDay(millis) {
    const date = new Date(millis);
    return `${date.getFullYear()}-${two(date.getMonth() + 1)}-${two(date.getDate())}`;
  }

  const fromIso = day => new Date(`${day}T12:00:00`);

  /** 0:09, 12:34, 1:02:03; with tenths for a player. */
  function length(seconds, digits = 0) {
    const s = digits ? Math.max(0, seconds) : Math.max(0, Math.round(seconds));
    const rest = (s % 60).toFixed(digits).padStart(digits ? 3 + digits : 2, '0');
    if (rest.startsWith('60')) return length(Math.round(s), digits);
    const minutes = Math.floor(s / 60);
    return minutes < 60 ? `${minutes}:${rest}` : `${Math.floor(minutes / 60)}:${two(minutes % 60)}:${rest}`;
  }

  /** The name of a party and the rest of its address: bob and 10.0.0.2 for sip:bob@10.0.0.2. */
  function party(address) {
    const match = /^<?(?:sips?|tel|h323):(?:([^@;?<>"\s]*)@)?([^@;?<>"\s]*)(?:[;?][^<>"\s]*)?>?$/i.exec(address);
    if (!match) return {name: address || 'unknown', host: ''};
    const host = match[2].replace(/:5060$/, '');
    let name = match[1] || '';
    try {
      name = decodeURIComponent(name);
    } catch {
      /* used undecoded */
    }
    return name ? {name, host} : {name: host || 'unknown', host: ''};
  }

  const pressed = button => button.getAttribute('aria-pressed') === 'true';
  const press = (button, on) => button.setAttribute('aria-pressed', on);
  const bdi = text => h('bdi', {}, text);
  const brief = text => (text.length > 60 ? [...text].slice(0, 60).join('') + '…' : text);
  const flawed = call => call.voices.some(voice => voice.lost || voice.gaps.length);
  const escaped = text => encodeURIComponent(text.replace(/\p{Cs}/gu, '\ufffd'));
  const fileUrl = file => base + file.split('/').map(escaped).join('/');

  // Levels are characters of this alphabet, 0 to 63.
  const ALPHABET = 'ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_';

  // ---------------------------------------------------------------- data

  function take(all) {
    taken += all.length;
    read(all, calls);
  }

  function read(all, into) {
    for (const line of all) {
      try {
        const record = JSON.parse(line);
        if (record.settled) into.forEach((call, n) => call.running && into.delete(n));
        into.delete(record.was);
        if (!record.call) continue;
        const call = prepare(record);
        into.set(call.name, call);
      } catch (error) {
        console.info(`a line is left out: ${error.message}`); // cut off by a crash of the machine
      }
    }
  }

  /** Completes the report of a call for drawing and searching. Times within a call are seconds from its start. */
  function prepare({was, call, peaks, running}) {
    call.was = was;
    call.legs = call.legs || []; // earlier versions wrote no legs
    call.name = call.name || was; // a running call has no files to be named after
    call.running = running;
    call.from = party(call.caller);
    call.to = party(call.callee);
    call.voices = [call.fromCaller, call.fromCallee];
    const stereo = fromFirstSound(call);
    call.both = call.stereo ? [{file: call.stereo, offset: stereo}, ...(call.moreStereo || [])] : [];
    call.voices.forEach((voice, i) => {
      voice.who = i ? call.to : call.from;
      voice.role = i ? 'callee' : 'caller';
      voice.gaps = voice.parts.flatMap(part =>
        part.gaps.map(gap => [part.offset + gap.from, part.offset + gap.to]),
      );
      voice.sounds = voice.parts
        .map((part, k) => ({...part, peaks: peaks && peaks[i][k]}))
        .filter(part => part.peaks);
    });
    const sounds = call.voices.flatMap(voice => voice.sounds);
    call.begin = sounds.length ? Math.min(...sounds.map(sound => sound.offset)) : 0;
    call.total = Math.max(0, ...sounds.map(sound => sound.offset + sound.duration));
    call.seconds = (call.end - call.start) / 1000;
    call.unplayable = call.total
      ? ''
      : [...new Set(call.voices.flatMap(voice => voice.parts.map(part => part.codec)))].join(', ');
    call.text = [
      call.caller,
      call.callee,
      call.from.name,
      call.to.name,
      call.id,
      ...call.legs.flatMap(leg => [leg.id, leg.caller, leg.callee]),
      call.protocol,
      call.endReason,
      isoDay(call.start),
      clock.format(call.start),
      longDay.format(call.start),
      ...call.notes,
      ...call.voices.map(voice => voice.digits.map(digit => digit.digit).join('')),
    ]
      .join('\n')
      .toLowerCase();
    call.numbers = [call.from.name, call.to.name].map(name => name.replace(/\D/g, '')).join('\n');
    return call;
  }

  /**
   * A call begins with its first message, or with sound that was captured before it. In reports of earlier versions it
   * begins with the message. Returns the offset of the stereo file, which begins with the call or the first sound.
   */
  function fromFirstSound(call) {
    const parts = call.voices.flatMap(voice => voice.parts);
    const first = parts.filter(part => !part.file.endsWith('.pcap')).map(part => part.offset);
    const early = Math.min(0, ...parts.map(part => part.offset));
    if (early < 0) {
      call.start += early * 1000;
      for (const part of [...parts, ...(call.moreStereo || [])]) part.offset -= early;
      for (const event of [...call.ladder, ...call.voices.flatMap(voice => voice.digits)]) event.at -= early;
    }
    return Math.min(0, ...first) - early;
  }

  // ---------------------------------------------------------------- all days

  const archive = new Map(); // calls of the other pages, reduced to the data of the list and the search
  const readPages = new Set();
  let reading = null; // the page that is being read

  /** Adds the calls of all other pages to the list. Reads each page once, in a hidden frame. */
  async function searchEverywhere() {
    const button = byId('everywhere');
    if (pressed(button)) {
      press(button, false);
      archive.forEach((call, name) => calls.get(name) === call && calls.delete(name));
      search();
      return;
    }
    press(button, true);
    const others = reading ? [] : pages().filter(page => !page.newest && !readPages.has(page.href));
    for (const [i, page] of others.entries()) {
      reading = `reading ${i + 1} of ${plural(others.length, 'page')}`;
      merge();
      const found = new Map();
      read((await contentOf(page.href, 0)).lines, found);
      found.forEach(call => archive.set(page.key + call.name, outline(call, page.href)));
      readPages.add(page.href);
    }
    if (others.length) reading = null;
    merge();
  }

  function merge() {
    if (pressed(byId('everywhere'))) archive.forEach((call, name) => calls.has(name) || calls.set(name, call));
    search();
  }

  /** Reads the first line of another page, and its lines from a number on, in a hidden frame. */
  function contentOf(href, from) {
    return new Promise(resolve => {
      const frame = h('iframe', {hidden: true, title: 'Another page', tabindex: '-1', src: `${href}?live=${from}`});
      const done = (first, all) => {
        clearTimeout(late);
        removeEventListener('message', hear);
        frame.remove();
        resolve({first, lines: all});
      };
      const hear = event =>
        event.source === frame.contentWindow &&
        event.data &&
        Array.isArray(event.data.lines) &&
        done(String(event.data.head), event.data.lines.map(String));
      const late = setTimeout(() => done('', []), 60000); // the page was deleted
      addEventListener('message', hear);
      document.body.append(frame);
    });
  }

  // ---------------------------------------------------------------- several recorders

  // The newest page of each recorder, on a page over the folders of several recorders.
  let recorders = [];

  function gather() {
    recorders = (parsed(head).folders || []).map(folder => ({
      folder,
      href: `${folder}index.html`,
      first: '',
      taken: 0,
      calls: new Map(),
      older: [],
    }));
    recorders.forEach(refresh);
  }

  /** Shows the calls of a recorder, and its new calls from then on. */
  async function refresh(recorder) {
    const {first, lines: more} = await contentOf(recorder.href, recorder.taken);
    const begun = first && first !== recorder.first && recorder.taken > 0; // another day has begun
    setTimeout(refresh, begun ? 0 : 5000, recorder);
    if (begun) {
      recorder.taken = 0;
      recorder.calls.clear();
      return;
    }
    if (!more.length) return;
    recorder.first = first;
    recorder.older = parsed(first).older || [];
    recorder.taken += more.length;
    read(more, recorder.calls);
    calls.forEach((call, key) => call.page === recorder.href && !recorder.calls.has(call.name) && calls.delete(key));
    recorder.calls.forEach((call, name) => {
      const key = recorder.folder + name;
      if (!calls.has(key)) calls.set(key, outline(call, recorder.href));
    });
    drawPages();
    search();
  }

  /** Returns only the data that the list shows, because the other pages can hold very many calls. */
  function outline(call, page) {
    const {name, start, end, seconds, caller, callee, endReason, from, to, text, numbers, begin, total, running} = call;
    const step = (total - begin) / BARS;
    const voices = call.voices.map(voice => ({
      role: voice.role,
      lost: voice.lost,
      gaps: Array(voice.gaps.length),
      sounds: total
        ? [
            {
              offset: begin,
              duration: total - begin,
              peaks: Array.from(
                {length: BARS},
                (_, i) => ALPHABET[Math.round(63 * loudest(voice, begin + i * step, begin + (i + 1) * step))],
              ).join(''),
            },
          ]
        : [],
    }));
    return {
      page,
      name,
      start,
      end,
      seconds,
      caller,
      callee,
      endReason,
      from,
      to,
      text,
      numbers,
      begin,
      total,
      running,
      voices,
    };
  }

  function matcher() {
    const query = byId('query').value.trim().toLowerCase();
    const day = byId('day').value;
    const onlyFlawed = pressed(byId('flawed'));
    const onlyHeard = pressed(byId('heard'));
    const terms = query.split(/\s+/);
    // (030) 123-45 finds +493012345: punctuation and leading zeros do not count.
    const number = /^[+(\d][\d\s()./-]{2,}$/.test(query) && query.replace(/\D/g, '').replace(/^0+/, '');
    return call =>
      (!day || isoDay(call.start) === day) &&
      (!onlyFlawed || flawed(call)) &&
      (!onlyHeard || call.running || call.total > 0) &&
      (!query || terms.every(term => call.text.includes(term)) || (number && call.numbers.includes(number)));
  }

  function search() {
    const fits = matcher();
    found = [...calls.values()]
      .filter(fits)
      .sort((a, b) => !!b.running - !!a.running || b.start - a.start || (a.name < b.name ? 1 : -1));
    const all = calls.size;
    const up = found.filter(call => call.running).length;
    const narrowed = found.length !== all;
    byId('summary').textContent =
      (narrowed ? `${found.length.toLocaleString()} of ${plural(all, 'call')}` : plural(all, 'call')) +
      (up ? `, ${up.toLocaleString()} running` : '') +
      (reading ? `, ${reading}` : '');
    drawList();
  }

  // ---------------------------------------------------------------- list

  const list = byId('calls');
  const sentinel = h('div', {class: 'sentinel'});
  new IntersectionObserver(entries => entries.some(entry => entry.isIntersecting) && drawMore(), {
    root: list,
    rootMargin: '600px',
  }).observe(sentinel);

  function drawList() {
    const focus = document.activeElement && document.activeElement.closest('.row');
    const top = list.scrollTop;
    const many = Math.max(ROWS, drawn);
    drawn = 0;
    list.replaceChildren();
    drawMore(top > 0 ? many : ROWS);
    list.scrollTop = top;
    if (focus && focus.isConnected) focus.focus({preventScroll: true});
    if (!found.length)
      list.append(
        calls.size
          ? nothingFound()
          : h(
              'div',
              {class: 'empty'},
              h('strong', {}, 'No call yet'),
              h('p', {}, 'Calls appear here as the recorder hears them.'),
            ),
      );
  }

  function nothingFound() {
    const day = byId('day').value;
    const elsewhere = day && pages().find(page => page.first <= day && day <= page.last);
    return h(
      'div',
      {class: 'empty'},
      h('strong', {}, 'No call fits'),
      elsewhere
        ? h('p', {}, 'That day has a page of its own: ', h('a', {href: elsewhere.href}, elsewhere.label))
        : h('p', {}, 'Try fewer words, a part of the number, or another day.'),
      !byId('everywhere').hidden &&
        !pressed(byId('everywhere')) &&
        h('button', {type: 'button', class: 'toggle', onclick: searchEverywhere}, 'Search all days'),
      h('button', {type: 'button', class: 'toggle', onclick: clearSearch}, 'Show all calls'),
    );
  }

  function clearSearch() {
    byId('search').reset();
    for (const filter of FILTERS) press(byId(filter), false);
    byId('query').focus();
    search();
  }

  function drawMore(many = ROWS) {
    const end = Math.min(found.length, drawn + many);
    let group = list.querySelector('section:last-of-type');
    for (; drawn < end; drawn++) {
      const call = found[drawn];
      const heading = call.running ? 'Running now' : longDay.format(call.start);
      if (!group || group.dataset.heading !== heading) {
        group = h('section', {'data-heading': heading}, h('h2', {}, heading), h('ul'));
        list.append(group);
      }
      call.row = call.row || row(call);
      group.lastChild.append(call.row.parentNode || h('li', {}, call.row));
    }
    list.append(sentinel);
    sentinel.hidden = drawn === found.length;
    mark();
  }

  const address = call => (call.page || '') + '#' + escaped(call.name);
  const lasting = (call, attributes) =>
    h(
      'span',
      {...attributes, 'data-since': call.running && call.start},
      length(call.running ? (Date.now() - call.start) / 1000 : call.seconds),
    );

  function row(call) {
    return h(
      'a',
      {
        class: 'row',
        href: address(call),
        draggable: 'false',
        title: `${call.caller} → ${call.callee}\n${call.endReason}`,
      },
      h('time', {datetime: new Date(call.start).toISOString()}, clock.format(call.start)),
      h('span', {class: 'who'}, bdi(call.from.name)),
      h('span', {class: 'whom'}, h('i', {'aria-label': 'to'}, '→'), bdi(call.to.name)),
      call.running
        ? h('em', {class: 'live'}, 'Running')
        : call.total
          ? sketch(call)
          : call.unplayable
            ? h('em', {class: 'mute', title: 'Recorded, not playable here'}, 'Recorded: ', bdi(call.unplayable))
            : h('em', {class: 'mute'}, 'No sound'),
      lasting(call, {class: 'length'}),
      flawed(call) && h('em', {class: 'flaw'}, flaws(call)),
    );
  }

  function flaws(call) {
    const lost = call.voices.reduce((sum, voice) => sum + voice.lost, 0);
    return lost
      ? `${lost.toLocaleString()} lost`
      : plural(
          call.voices.reduce((sum, voice) => sum + voice.gaps.length, 0),
          'gap',
        );
  }

  /** The small waveform of a call: the caller above the line, the callee below it. */
  function sketch(call) {
    const step = (call.total - call.begin) / BARS;
    const path = (voice, up) => {
      let d = '';
      for (let i = 0; i < BARS; i++) {
        const level = loudest(voice, call.begin + i * step, call.begin + (i + 1) * step);
        if (level > 0.03) d += `M${i * 3 + 1.5} 14v${(up * level * 12).toFixed(1)}`;
      }
      return d;
    };
    return svg(
      'svg',
      {class: 'sketch', viewBox: `0 0 ${BARS * 3} 28`, 'aria-hidden': 'true'},
      ...call.voices.map((voice, i) => svg('path', {class: voice.role, d: path(voice, i ? 1 : -1)})),
    );
  }

  /** The highest level of a voice between two times. */
  function loudest(voice, from, to) {
    let level = 0;
    for (const sound of voice.sounds) {
      const place = time => ((time - sound.offset) / sound.duration) * sound.peaks.length;
      for (
        let i = Math.max(0, Math.floor(place(from)));
        i < Math.min(sound.peaks.length, Math.ceil(place(to)));
        i++
      ) {
        level = Math.max(level, ALPHABET.indexOf(sound.peaks[i]) / 63);
      }
    }
    return level;
  }

  function mark() {
    for (const marked of list.querySelectorAll('[aria-current]')) marked.removeAttribute('aria-current');
    if (shown && shown.row) shown.row.setAttribute('aria-current', 'true');
  }

  // ---------------------------------------------------------------- one call

  function show(call) {
    if (player) player.close();
    player = null;
    shown = call;
    mark();
    const pane = byId('call');
    pane.scrollTop = 0;
    document.title = call ? `${brief(call.from.name)} → ${brief(call.to.name)} · Recordings` : 'Recordings';
    if (!call) {
      pane.replaceChildren(h('div', {class: 'empty'}, h('p', {}, 'Choose a call to listen to it.')));
      return;
    }
    player = call.total ? new Player(call) : null;
    pane.replaceChildren(
      ...[
        h('a', {class: 'back', href: '#'}, '‹ Calls'),
        heading(call),
        player
          ? player.element
          : h(
              'p',
              {class: 'note'},
              call.running
                ? 'The call is being recorded. It can be listened to here when it has ended.'
                : call.unplayable
                  ? `Recorded, not playable here: ${call.unplayable}. The files are below.`
                  : 'No sound of this call was recorded.',
            ),
        voices(call),
        gaps(call),
        digits(call),
        legs(call),
        ladder(call),
        files(call),
      ].filter(Boolean),
    );
    if (player) player.draw();
  }

  function heading(call) {
    const name = (who, role) =>
      h('span', {class: role, title: role}, bdi(brief(who.name)), who.host && h('small', {}, bdi(brief(who.host))));
    const fact = (term, ...value) => h('div', {}, h('dt', {}, term), h('dd', {}, ...value));
    return h(
      'header',
      {},
      h('p', {class: 'when'}, longDay.format(call.start)),
      h('h2', {}, name(call.from, 'caller'), h('i', {'aria-label': 'to'}, '→'), name(call.to, 'callee')),
      h(
        'dl',
        {class: 'facts'},
        fact('Began', clockSeconds.format(call.start)),
        call.running
          ? fact('Ended', h('em', {class: 'live'}, 'Running'))
          : fact('Ended', clockSeconds.format(call.end), ', ', bdi(call.endReason)),
        fact('Duration', lasting(call)),
        brief(call.from.name) !== call.from.name && fact('Caller in full', bdi(call.caller)),
        brief(call.to.name) !== call.to.name && fact('Callee in full', bdi(call.callee)),
        fact('Protocol', bdi(call.protocol)),
        call.id && fact('Call ID', h('code', {}, bdi(call.id))),
      ),
      call.notes.length > 0 &&
        h(
          'ul',
          {class: 'notes'},
          call.notes.map(note => h('li', {}, bdi(note))),
        ),
    );
  }

  const section = (title, ...content) => h('section', {}, h('h3', {}, title), ...content);

  /** Returns a button that moves the player to a time. */
  function jump(seconds, ...label) {
    const time = h('small', {}, length(seconds, 1));
    if (!player) return h('span', {class: 'jump'}, time, ...label);
    return h('button', {type: 'button', class: 'jump', onclick: () => player.seek(seconds - 0.3)}, time, ...label);
  }

  function voices(call) {
    if (call.running) return null;
    const row = voice => {
      const share = (100 * voice.lost) / (voice.packets + voice.lost);
      const seconds = voice.parts.reduce((sum, part) => sum + part.duration, 0);
      return h(
        'tr',
        {},
        h('th', {scope: 'row', class: voice.role}, bdi(voice.who.name), h('small', {}, voice.role)),
        h('td', {}, bdi([...new Set(voice.parts.map(part => part.codec))].join(', ') || '–')),
        h('td', {class: 'number'}, seconds ? length(seconds, 1) : '–'),
        h('td', {class: 'number'}, voice.packets.toLocaleString()),
        h(
          'td',
          {class: voice.lost ? 'number flaw' : 'number'},
          voice.lost ? `${voice.lost.toLocaleString()} (${share < 0.1 ? '<0.1' : share.toFixed(1)} %)` : '0',
        ),
      );
    };
    return section(
      'Voices',
      h(
        'div',
        {class: 'wide'},
        h(
          'table',
          {},
          h(
            'thead',
            {},
            h(
              'tr',
              {},
              ['From', 'Codec', 'Sound', 'Packets', 'Lost'].map((text, i) =>
                h('th', {scope: 'col', class: i > 1 && 'number'}, text),
              ),
            ),
          ),
          h('tbody', {}, call.voices.map(row)),
        ),
      ),
    );
  }

  /** Returns the items of both voices in the order of their times. */
  const inOrder = (call, what) => call.voices.flatMap(voice => what(voice).map(each => [voice, each]));

  function gaps(call) {
    const all = inOrder(call, voice => voice.gaps).sort((a, b) => a[1][0] - b[1][0]);
    return (
      all.length > 0 &&
      section(
        'Missing sound',
        h(
          'ol',
          {class: 'gaps'},
          all.map(([voice, [from, to]]) =>
            h(
              'li',
              {},
              jump(from, h('span', {class: voice.role}, bdi(voice.who.name)), `${(to - from).toFixed(2)} s`),
            ),
          ),
        ),
      )
    );
  }

  function digits(call) {
    const all = inOrder(call, voice => voice.digits).sort((a, b) => a[1].at - b[1].at);
    return (
      all.length > 0 &&
      section(
        'Digits',
        h(
          'ol',
          {class: 'digits'},
          all.map(([voice, {at, digit}]) => h('li', {class: voice.role}, jump(at, h('kbd', {}, bdi(digit))))),
        ),
      )
    );
  }

  /** The table of the legs that a call manager or a transfer has joined. */
  function legs(call) {
    const row = leg =>
      h(
        'tr',
        {},
        h('td', {class: 'number'}, `+${leg.at.toFixed(1)}`),
        h('td', {}, bdi(party(leg.caller).name), ' → ', bdi(party(leg.callee).name)),
        h('td', {}, bdi(leg.endReason || '–')),
        h('td', {}, h('code', {}, bdi(leg.id))),
      );
    return (
      call.legs.length > 0 &&
      section(
        'Legs',
        h(
          'div',
          {class: 'wide'},
          h(
            'table',
            {},
            h(
              'thead',
              {},
              h(
                'tr',
                {},
                ['Began', 'Parties', 'Ended', 'Call ID'].map(text => h('th', {scope: 'col'}, text)),
              ),
            ),
            h('tbody', {}, call.legs.map(row)),
          ),
        ),
      )
    );
  }

  function ladder(call) {
    const steps = call.ladder;
    if (!steps.length) return null;
    // One line for each host, regardless of its ports, unless a host sends to itself.
    const hostOf = end => end.replace(/:\d+$/, '');
    const place = steps.some(step => hostOf(step.from) === hostOf(step.to)) ? end => end : hostOf;
    const hosts = [...new Set(steps.flatMap(step => [place(step.from), place(step.to)]))];
    const share = 100 / hosts.length;
    const middle = end => (hosts.indexOf(place(end)) + 0.5) * share;
    const head = h(
      'div',
      {class: 'step hosts'},
      h('span'),
      h(
        'div',
        {class: 'lanes'},
        hosts.map(host => h('span', {}, bdi(host))),
      ),
    );
    const lines = h(
      'div',
      {class: 'lifelines', 'aria-hidden': 'true'},
      hosts.map(host => at(h('i'), middle(host))),
    );
    const rows = steps.map(step => {
      const [a, b] = [middle(step.from), middle(step.to)];
      const arrow = at(
        h('span', {class: 'arrow ' + (b < a ? 'left' : 'right')}, h('b', {}, bdi(step.label))),
        Math.min(a, b),
        Math.abs(b - a),
      );
      return h(
        'li',
        {class: 'step'},
        h('time', {title: clockSeconds.format(call.start + step.at * 1000)}, `+${step.at.toFixed(3)}`),
        h(
          'div',
          {class: 'lanes', title: `${step.from} → ${step.to}`},
          h('span', {class: 'unseen'}, `${step.from} to ${step.to}: `),
          arrow,
        ),
      );
    });
    const whole = h('div', {class: 'ladder'}, head, h('div', {class: 'steps'}, lines, h('ol', {}, rows)));
    whole.style.minWidth = `${4.5 + 9 * hosts.length}rem`;
    return section('Signalling', h('div', {class: 'wide'}, whole));
  }

  function at(element, left, width) {
    element.style.left = left + '%';
    if (width != null) element.style.width = width + '%';
    return element;
  }

  function files(call) {
    const all = [...call.both, ...call.voices.flatMap(voice => voice.parts)].map(part => part.file).filter(Boolean);
    return (
      all.length > 0 &&
      section(
        'Files',
        h(
          'ul',
          {class: 'files'},
          all.map(file =>
            h(
              'li',
              {},
              h(
                'a',
                {href: fileUrl(file), download: file.split('/').pop()},
                icon('M12 4v11m-5-5 5 5 5-5M5 20h14'),
                bdi(file),
              ),
            ),
          ),
        ),
      )
    );
  }

  // ---------------------------------------------------------------- player

  class Player {
    constructor(call) {
      this.call = call;
      this.total = call.total;
      this.sources = call.both.map(({file, offset}, i) => ({label: 'Both' + (i ? ` ${i + 1}` : ''), file, offset}));
      for (const voice of call.voices) {
        // A voice without a file of its own is heard in the file of both.
        voice.sounds.filter(sound => sound.file).forEach(({file, offset}, i) =>
          this.sources.push({
            label: (voice.role === 'caller' ? 'Caller' : 'Callee') + (i ? ` ${i + 1}` : ''),
            voice,
            file,
            offset,
          }),
        );
      }
      this.audio = h('audio', {preload: 'metadata'});
      this.audio.addEventListener('error', () => this.fail());
      for (const event of ['play', 'pause', 'ended', 'seeked', 'loadedmetadata'])
        this.audio.addEventListener(event, () => this.update());
      this.build();
      this.choose(this.sources[0]);
      this.seek(call.begin); // skips the ringing
      this.resized = new ResizeObserver(() => this.draw());
      this.resized.observe(this.canvas);
      this.scheme = matchMedia('(prefers-color-scheme: dark)');
      this.repaint = () => this.draw();
      this.scheme.addEventListener('change', this.repaint);
    }

    build() {
      this.canvas = h('canvas', {'aria-hidden': 'true'});
      this.slider = h('input', {
        type: 'range',
        min: 0,
        max: this.total,
        step: 0.01,
        value: 0,
        'aria-label': 'Position',
        oninput: () => this.seek(+this.slider.value),
      });
      this.slider.addEventListener('pointermove', event => this.hover(event.offsetX / this.slider.clientWidth));
      this.slider.addEventListener('pointerleave', () => this.hover(null));
      this.hint = h('output', {class: 'hint', 'aria-hidden': 'true', hidden: true});
      this.button = h(
        'button',
        {type: 'button', class: 'play', onclick: () => this.toggle()},
        icon('M8 5.5v13l11-6.5z'),
      );
      this.time = h('span', {class: 'time'});
      this.choice = h(
        'div',
        {class: 'choice', hidden: this.sources.length < 2, role: 'radiogroup', 'aria-label': 'Listen to'},
        this.sources.map(source =>
          h(
            'label',
            {},
            h('input', {type: 'radio', name: 'source', value: source.label, onchange: () => this.choose(source)}),
            h('span', {}, source.label),
          ),
        ),
      );
      this.speed = h(
        'select',
        {
          'aria-label': 'Speed',
          onchange: () => {
            this.audio.playbackRate = +this.speed.value;
          },
        },
        ['0.75', '1', '1.25', '1.5', '2'].map(rate =>
          h('option', {value: rate, selected: rate === '1'}, rate + '×'),
        ),
      );
      this.message = h('p', {class: 'note', role: 'alert', hidden: true});
      const names = this.call.voices.map(voice => h('span', {class: 'name ' + voice.role}, bdi(voice.who.name)));
      const skip = (seconds, label, path) =>
        h(
          'button',
          {
            type: 'button',
            class: 'skip-by',
            'aria-label': label,
            title: label,
            onclick: () => this.seek(this.position + seconds),
          },
          icon(path),
        );
      this.element = h(
        'div',
        {class: 'player', role: 'group', 'aria-label': 'Player'},
        h('div', {class: 'waves'}, names, this.canvas, this.slider, this.hint),
        this.ruler(),
        h(
          'div',
          {class: 'controls'},
          skip(-5, 'Back 5 seconds', 'M11 7 6 12l5 5M18 7l-5 5 5 5'),
          this.button,
          skip(5, 'On 5 seconds', 'm13 7 5 5-5 5M6 7l5 5-5 5'),
          this.time,
          h('span', {class: 'space'}),
          this.choice,
          this.speed,
        ),
        this.message,
        this.audio,
      );
    }

    ruler() {
      const step =
        [1, 2, 5, 10, 15, 30, 60, 120, 300, 600, 1200, 1800, 3600, 7200].find(s => this.total / s <= 8) || 14400;
      const ticks = [];
      for (let s = 0; s <= this.total - step / 3; s += step)
        ticks.push(at(h('span', {}, length(s)), (100 * s) / this.total));
      return h('div', {class: 'ruler', 'aria-hidden': 'true'}, ticks);
    }

    choose(source) {
      const {position} = this;
      const playing = this.source && !this.audio.paused;
      const rate = this.audio.playbackRate;
      this.source = source;
      this.message.hidden = true;
      this.audio.src = fileUrl(source.file);
      this.audio.defaultPlaybackRate = rate;
      this.choice.children[this.sources.indexOf(source)].firstChild.checked = true;
      this.seek(position);
      if (playing) this.play();
      this.draw();
    }

    get position() {
      return this.source ? (this.wanted != null ? this.wanted : this.audio.currentTime + this.source.offset) : 0;
    }

    seek(seconds) {
      if (!this.source) return;
      const target = Math.min(Math.max(0, seconds), this.total);
      if (this.audio.readyState) {
        this.wanted = null;
        this.audio.currentTime = Math.max(0, target - this.source.offset);
      } else {
        this.wanted = target; // applied when the length of the file is known
      }
      this.update();
    }

    toggle() {
      this.audio.paused ? this.play() : this.audio.pause();
    }

    play() {
      if (this.position >= this.total - 0.05) this.seek(0);
      this.audio.play().catch(() => this.update());
    }

    update() {
      if (this.wanted != null && this.audio.readyState) this.seek(this.wanted);
      const playing = !this.audio.paused && !this.audio.ended;
      this.button.setAttribute('aria-label', playing ? 'Pause' : 'Play');
      this.button.firstChild.firstChild.setAttribute(
        'd',
        playing ? 'M7 5.5h3.5v13H7zM13.5 5.5H17v13h-3.5z' : 'M8 5.5v13l11-6.5z',
      );
      this.slider.value = this.position;
      this.slider.setAttribute('aria-valuetext', `${length(this.position, 1)} of ${length(this.total, 1)}`);
      this.time.replaceChildren(h('b', {}, length(this.position, 1)), ' / ' + length(this.total, 1));
      this.draw();
      cancelAnimationFrame(this.frame);
      if (playing) this.frame = requestAnimationFrame(() => this.update());
    }

    hover(fraction) {
      this.hint.hidden = fraction == null;
      if (fraction == null) return;
      const seconds = Math.min(1, Math.max(0, fraction)) * this.total;
      this.hint.textContent = length(seconds, 1) + ' · ' + clockSeconds.format(this.call.start + seconds * 1000);
      at(this.hint, Math.min(92, Math.max(8, fraction * 100)));
    }

    fail() {
      this.message.textContent = `${this.source.file} cannot be played: it may have been moved or deleted.`;
      this.message.hidden = false;
    }

    /** Draws both voices, one above the other: played parts in full colour, missing parts hatched. */
    draw() {
      const ratio = devicePixelRatio || 1;
      const [width, height] = [this.canvas.clientWidth, this.canvas.clientHeight];
      if (!width) return;
      if (this.canvas.width !== Math.round(width * ratio))
        [this.canvas.width, this.canvas.height] = [width * ratio, height * ratio].map(Math.round);
      const g = this.canvas.getContext('2d');
      g.setTransform(ratio, 0, 0, ratio, 0, 0);
      g.clearRect(0, 0, width, height);
      const style = getComputedStyle(this.canvas);
      const colour = name => style.getPropertyValue('--' + name).trim();
      const now = (this.position / this.total) * width;
      const lane = height / this.call.voices.length;
      this.call.voices.forEach((voice, i) => {
        const middle = lane * (i + 0.5);
        const mute = this.source.voice && this.source.voice !== voice;
        const x = seconds => (seconds / this.total) * width;
        g.globalAlpha = mute ? 0.3 : 1;
        g.fillStyle = colour('rest');
        g.fillRect(0, middle - 0.5, width, 1);
        for (let bar = 0; bar * 3 < width; bar++) {
          const level = loudest(voice, ((bar * 3) / width) * this.total, ((bar * 3 + 3) / width) * this.total);
          if (level <= 0.02) continue;
          const tall = Math.max(2, level * (lane - 26));
          g.fillStyle = colour(bar * 3 < now ? (i ? 'callee' : 'caller') : i ? 'callee-soft' : 'caller-soft');
          g.beginPath();
          g.roundRect(bar * 3, middle - tall / 2, 2, tall, 1);
          g.fill();
        }
        for (const [from, to] of voice.gaps)
          this.hatch(g, x(from), Math.max(4, x(to) - x(from)), middle - lane / 2 + 14, lane - 28, colour('flaw'));
        g.globalAlpha = 1;
      });
      g.fillStyle = colour('ink');
      g.font = '600 11px ' + style.fontFamily;
      g.textAlign = 'center';
      this.call.voices.forEach((voice, i) =>
        voice.digits.forEach(({at, digit}) => g.fillText(digit, (at / this.total) * width, lane * (i + 1) - 3)),
      );
      g.fillRect(Math.min(width - 1.5, Math.max(0, now - 0.75)), 0, 1.5, height);
    }

    hatch(g, x, width, y, height, colour) {
      g.save();
      g.beginPath();
      g.rect(x, y, width, height);
      g.clip();
      g.fillStyle = colour;
      g.globalAlpha *= 0.12;
      g.fillRect(x, y, width, height);
      g.globalAlpha *= 5;
      g.strokeStyle = colour;
      g.lineWidth = 1;
      for (let d = -height; d < width; d += 6) {
        g.beginPath();
        g.moveTo(x + d, y + height);
        g.lineTo(x + d + height, y);
        g.stroke();
      }
      g.restore();
    }

    close() {
      cancelAnimationFrame(this.frame);
      this.resized.disconnect();
      this.scheme.removeEventListener('change', this.repaint);
      this.audio.pause();
      this.audio.removeAttribute('src');
    }
  }

  // ---------------------------------------------------------------- other pages, keys, updates

  function parsed(line) {
    try {
      return JSON.parse(line) || {};
    } catch {
      return {}; // the page has no calls yet
    }
  }

  /** Returns the pages of earlier days, which a folder holds. */
  const dated = (names, folder, key) =>
    names
      .map(name => /^(\d{4}-\d\d-\d\d)(?:_(\d{4}-\d\d-\d\d))?(?:\.(\d+))?\.html$/.exec(name))
      .filter(Boolean)
      .map(([name, first, last = first, part]) => ({
        first,
        last,
        key,
        href: folder + name,
        label:
          (key ? `${nameOf(key)}: ` : '') +
          [...new Set([first, last])].map(day => shortDay.format(fromIso(day))).join(' – ') +
          (part ? `, part ${part}` : ''),
      }));

  const nameOf = folder => decodeURIComponent(folder.split('/').at(-2));

  function pages() {
    const newest = {first: '', last: '', key: '', newest: true};
    if (recorders.length)
      return recorders.flatMap(({folder, href, older}) => [
        {...newest, href, label: nameOf(folder)},
        ...dated(older, `${folder}days/`, folder),
      ]);
    const named = dated(parsed(head).older || [], archived ? '' : 'days/', '');
    return archived ? [{...newest, href: '../index.html', label: 'The newest calls'}, ...named] : named;
  }

  function drawPages() {
    const all = pages();
    byId('older').hidden = !all.length;
    byId('everywhere').hidden = archived || all.every(page => page.newest);
    byId('older').querySelector('summary').textContent = archived
      ? 'Other days'
      : recorders.length
        ? 'Recorders and days'
        : 'Older calls';
    byId('older')
      .querySelector('ul')
      .replaceChildren(...all.map(page => h('li', {}, h('a', {href: page.href}, page.label))));
  }

  /** Shows the call that the address names. On a wide screen, shows the newest call when the address names none. */
  function follow() {
    let n = '';
    try {
      n = decodeURIComponent(location.hash.slice(1));
    } catch {
      /* not a name of a call */
    }
    const wide = matchMedia('(min-width: 900px)').matches;
    const before = shown;
    const named = calls.get(n) && !calls.get(n).page ? calls.get(n) : null;
    document.body.classList.toggle('chosen', !!named);
    const call =
      named ||
      (wide && (found.find(each => !each.running && !each.page) || found.find(each => !each.page))) ||
      null;
    if (call !== shown || !call) show(call);
    if (wide || call === before) return;
    if (call)
      byId('call').focus(); // the list is hidden
    else if (before.row) before.row.focus();
  }

  function move(by) {
    if (!found.length) return;
    const focused = found.findIndex(call => call.row && call.row === document.activeElement);
    const current = focused >= 0 ? focused : found.indexOf(shown);
    const next = Math.min(found.length - 1, Math.max(0, current >= 0 ? current + by : 0));
    while (drawn <= next) drawMore();
    if (!found[next].page) {
      // a call of another page opens only with Enter
      location.replace(address(found[next]));
      follow(); // at once: the event arrives only after keys that were pressed meanwhile
    }
    found[next].row.focus({preventScroll: true});
    found[next].row.scrollIntoView({block: 'nearest'});
  }

  addEventListener('keydown', event => {
    const on = event.target;
    if (event.ctrlKey || event.metaKey || event.altKey) return;
    const seeking = on.type === 'range' && /^Arrow/.test(event.key);
    if (event.key === 'Escape' && on.id === 'query' && on.value) {
      clearSearch();
      return;
    }
    if (event.key === 'Escape' && byId('older').open) {
      byId('older').open = false;
      return;
    }
    if (
      !seeking &&
      (/^(SELECT|TEXTAREA)$/.test(on.tagName) ||
        (on.tagName === 'INPUT' &&
          on.type !== 'range' &&
          !(on.id === 'query' && /^Arrow(Up|Down)$/.test(event.key))))
    )
      return;
    if (event.key === ' ' && /^(BUTTON|SUMMARY)$/.test(on.tagName)) return;
    const act = {
      '/': () => byId('query').select(),
      ' ': () => player && player.toggle(),
      ArrowLeft: () => player && player.seek(player.position - 5),
      ArrowRight: () => player && player.seek(player.position + 5),
      ArrowDown: () => (seeking ? player.seek(player.position - 1) : move(1)),
      ArrowUp: () => (seeking ? player.seek(player.position + 1) : move(-1)),
    }[event.key];
    if (act) {
      event.preventDefault();
      act();
    }
  });

  /** Reads the growing page again in a frame, so that the shown page keeps playing. */
  function watch() {
    if (archived) return;
    const frame = h('iframe', {hidden: true, title: 'News', tabindex: '-1'});
    let asked = 0;
    const ask = () => {
      if (document.hidden) {
        setTimeout(ask, 2000);
        return;
      }
      asked = performance.now();
      frame.src = `${location.pathname.split('/').pop()}?live=${taken}`;
      if (!frame.isConnected) document.body.append(frame);
    };
    addEventListener('message', event => {
      if (event.source !== frame.contentWindow || !event.data || !Array.isArray(event.data.lines)) return;
      if (event.data.head !== head) {
        // another day has begun
        if (!player || player.audio.paused) location.reload();
        return;
      }
      setTimeout(ask, 3000 + 30 * (performance.now() - asked)); // long pages less often
      if (!event.data.lines.length) return;
      take(event.data.lines.map(String));
      search();
      const now =
        shown &&
        [...calls.values()].find(call => call.name === shown.name || (shown.running && call.was === shown.name));
      if (!now) follow();
      else if (now.name !== shown.name && location.hash) location.replace(address(now));
      else if (now !== shown) show(now);
    });
    setTimeout(ask, 3000);
  }

  addEventListener('DOMContentLoaded', () => {
    const all = lines();
    head = all[0] || '';
    take(all);
    drawPages();
    byId('search').addEventListener('submit', event => {
      event.preventDefault();
      move(0);
    });
    byId('query').addEventListener('input', search);
    byId('day').addEventListener('input', search);
    for (const filter of FILTERS) {
      byId(filter).addEventListener('click', () => {
        press(byId(filter), !pressed(byId(filter)));
        search();
      });
    }
    byId('everywhere').addEventListener('click', searchEverywhere);
    addEventListener('hashchange', follow);
    search();
    follow();
    setInterval(
      () =>
        document.querySelectorAll('[data-since]').forEach(place => {
          place.textContent = length((Date.now() - place.dataset.since) / 1000);
        }),
      1000,
    );
    if (parsed(head).folders) gather();
    else watch();
  });
})();

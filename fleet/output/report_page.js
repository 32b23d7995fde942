// The script of corebench-fleet's HTML report. It reads the rows from the page's JSON block
// (#report-data, see report_data.h), draws each group's strip plot, names as many of its flagged
// nodes above it as fit without overlapping (each name's width measured in the page) and lists the
// others beside it, and shows the node table a page at a time, sorted by a click on a column head
// and filtered by host, CPU model or flagged. Text from the records enters the page only as text
// (textContent, attribute values), never as markup.
(function () {
  'use strict';
  var SVG = 'http://www.w3.org/2000/svg';
  var WIDTH = 960; // of a strip plot
  var MARGIN = 20; // between the plot's ends and the lowest and highest score
  var BAND = 80; // height of the band the marks are spread over
  var LABEL_ROWS = 4; // rows of names above the band; who does not fit is listed beside it
  var GAP = 6; // between two names in a row
  var PAGE = 100; // table rows shown at a time

  var data = JSON.parse(document.getElementById('report-data').textContent);
  var columns = data.columns;
  function columnNamed(name) {
    for (var c = 0; c < columns.length; c++) {
      if (columns[c].name === name) { return c; }
    }
    return -1;
  }
  var hostColumn = columnNamed('host');
  var startedColumn = columnNamed('started_at');
  var flaggedColumn = columnNamed('flagged');
  var scoreColumn = columnNamed('ps_result');
  var cpuColumn = columnNamed('cpu_model');
  var disturbedColumn = columnNamed('newest_disturbed');

  function value(c, r) {
    var column = columns[c];
    return column.dict ? column.dict[column.values[r]] : column.values[r];
  }
  // A cell's text, the same as the CSV's field.
  function cell(c, r) {
    var column = columns[c];
    var v = value(c, r);
    if (v === null) { return ''; }
    if (typeof v === 'number') {
      return column.kind === 'time'
        ? new Date((data.timeBase + v) * 1000).toISOString().slice(0, 19) + 'Z'
        : v.toFixed(column.decimals);
    }
    if (column.subst) {
      v = v.split('\u0000h').join(cell(hostColumn, r))
        .split('\u0000t').join(cell(startedColumn, r).replace(/[-:]/g, ''));
    }
    return v;
  }
  function host(r) { return cell(hostColumn, r); }
  // A score on an axis: two decimals, in few digits however large.
  function ps(v) { return Math.abs(v) < 1e9 ? v.toFixed(2) : v.toPrecision(6); }
  function flagged(r) { return cell(flaggedColumn, r) === 'yes'; }
  // Every run of the node was disturbed: the row shows the newest, which was not judged.
  function disturbed(r) {
    return disturbedColumn >= 0 &&
      cell(disturbedColumn, r).lastIndexOf(cell(startedColumn, r) + ': ', 0) === 0;
  }
  function score(r) {
    var text = cell(scoreColumn, r);
    var v = text === '' ? NaN : Number(text);
    return isFinite(v) ? v : null;
  }
  // A new element ('*circle': one of SVG) with attributes and text, appended to parent if given.
  function element(name, attributes, text, parent) {
    var node = name.charAt(0) === '*'
      ? document.createElementNS(SVG, name.slice(1)) : document.createElement(name);
    for (var key in attributes) { node.setAttribute(key, attributes[key]); }
    if (text !== undefined) { node.textContent = text; }
    if (parent) { parent.appendChild(node); }
    return node;
  }
  // A spread of the marks over the band that stays put from one report to the next (FNV-1a).
  function jitter(text) {
    var h = 2166136261;
    for (var i = 0; i < text.length; i++) { h = Math.imul(h ^ text.charCodeAt(i), 16777619) >>> 0; }
    return (h % 1000) / 1000;
  }

  // ---- the node table
  var table = document.getElementById('rows');
  var heads = [];
  var order = []; // row indices, sorted
  var shown = []; // of those, the ones the filters let through
  var first = 0; // the first of shown on the page
  var sortedBy = -1;
  var ascending = true;
  var collator = new Intl.Collator(undefined, { numeric: true });
  var models = []; // the CPU models in the rows' order
  var seen = Object.create(null);
  for (var r = 0; r < data.count; r++) {
    order.push(r);
    var model = cell(cpuColumn, r);
    if (!(model in seen)) {
      seen[model] = true;
      models.push(model);
    }
  }
  var hostFilter = document.getElementById('host-filter');
  var cpuFilter = document.getElementById('cpu-filter');
  var flaggedFilter = document.getElementById('flagged-filter');
  models.forEach(function (model, i) {
    element('option', { value: String(i) }, model === '' ? '(CPU model unknown)' : model,
      cpuFilter);
  });

  function render() {
    var body = document.createElement('tbody');
    var last = Math.min(first + PAGE, shown.length);
    for (var i = first; i < last; i++) {
      var row = shown[i];
      var tr = element('tr', flagged(row) ? { class: 'flagged' }
        : disturbed(row) ? { class: 'disturbed' } : {}, undefined, body);
      for (var c = 0; c < columns.length; c++) {
        element('td', columns[c].kind === 'fixed' ? { class: 'num' } : {}, cell(c, row), tr);
      }
    }
    table.replaceChild(body, table.tBodies[0]);
    document.getElementById('rows-status').textContent = shown.length === 0
      ? 'no node matches'
      : 'nodes ' + (first + 1) + ' to ' + last + ' of ' + shown.length
        + (shown.length < data.count ? ' matching (' + data.count + ' in all)' : '');
    document.getElementById('page-previous').disabled = first === 0;
    document.getElementById('page-next').disabled = last >= shown.length;
  }
  function filter() {
    var part = hostFilter.value.trim().toLowerCase();
    var model = cpuFilter.value === '' ? null : models[Number(cpuFilter.value)];
    var only = flaggedFilter.checked;
    shown = order.filter(function (r) {
      return (part === '' || host(r).toLowerCase().indexOf(part) >= 0)
        && (model === null || cell(cpuColumn, r) === model) && (!only || flagged(r));
    });
    first = 0;
    render();
  }
  // Numbers (also those written as text, such as p-values) as numbers and before text, text in
  // natural order ("n2" before "n10"), empty cells last either way, ties in the rows' first order.
  function sortBy(c) {
    ascending = sortedBy === c ? !ascending : true;
    sortedBy = c;
    var keys = [];
    for (var r = 0; r < data.count; r++) {
      var v = value(c, r);
      if (typeof v === 'string') {
        v = cell(c, r);
        v = /^-?[0-9]+(\.[0-9]+)?(e[-+]?[0-9]+)?$/i.test(v) ? Number(v) : v;
      }
      keys.push(v);
    }
    order.sort(function (a, b) {
      var x = keys[a];
      var y = keys[b];
      if (x === null || y === null) { return x === y ? a - b : x === null ? 1 : -1; }
      var d = typeof x === 'number' && typeof y === 'number' ? x - y
        : typeof x === typeof y ? collator.compare(x, y) : typeof x === 'number' ? -1 : 1;
      return (ascending ? d : -d) || a - b;
    });
    heads.forEach(function (head, i) {
      if (i === c) {
        head.setAttribute('aria-sort', ascending ? 'ascending' : 'descending');
      } else {
        head.removeAttribute('aria-sort');
      }
    });
    filter();
  }
  columns.forEach(function (column, c) {
    var head = element('th', { scope: 'col', title: 'sort by ' + column.name }, column.name,
      table.tHead.rows[0]);
    head.addEventListener('click', function () { sortBy(c); });
    heads.push(head);
  });
  hostFilter.addEventListener('input', filter);
  cpuFilter.addEventListener('change', filter);
  flaggedFilter.addEventListener('change', filter);
  document.getElementById('page-previous').addEventListener('click', function () {
    first = Math.max(first - PAGE, 0);
    render();
  });
  document.getElementById('page-next').addEventListener('click', function () {
    first += PAGE;
    render();
  });
  // The table showing one host, for a click on its mark or its name.
  function showHost(r) {
    hostFilter.value = host(r);
    cpuFilter.value = '';
    flaggedFilter.checked = false;
    filter();
    document.getElementById('nodes').scrollIntoView();
  }

  // ---- the strip plots
  // Each plot's texts below the axis are drawn first and their widths read (one layout of the
  // page). The flagged nodes' names, up to thousands, are measured on a canvas in the same font,
  // which takes no layout; each placed name keeps a span 2 px wider than that, and once all are
  // drawn their real widths are read at once (a second layout): a name wider than its span after
  // all is taken off the plot and listed, so no name can reach into another's span.
  var plots = [];
  Array.prototype.forEach.call(document.querySelectorAll('.plot'), function (box) {
    var group = data.groups[Number(box.getAttribute('data-group'))];
    var scored = [];
    var values = [];
    for (var r = group.first; r < group.first + group.count; r++) {
      var s = score(r);
      if (s !== null) {
        scored.push({ row: r, score: s });
        values.push(s);
      }
    }
    if (group.median !== null) { values.push(group.median, group.floor); }
    if (values.length === 0) {
      element('p', {}, 'No scores in this group.', box);
      return;
    }
    var lo = values.reduce(function (a, b) { return Math.min(a, b); });
    var hi = values.reduce(function (a, b) { return Math.max(a, b); });
    var pad = hi > lo ? (hi - lo) * 0.05 : Math.max(Math.abs(hi) * 0.05, 1);
    lo -= pad;
    hi += pad;
    var plot = {
      box: box,
      svg: element('*svg', { class: 'strip', width: WIDTH }, undefined, box),
      x: function (v) { return MARGIN + (v - lo) / (hi - lo) * (WIDTH - 2 * MARGIN); },
      scored: scored,
      group: group,
      names: [], // the flagged rows, slowest first
      axis: [] // the texts below the axis, each with where it wants to be
    };
    for (r = group.first; r < group.first + group.count; r++) {
      if (flagged(r)) { plot.names.push({ row: r, score: score(r) }); }
    }
    plot.names.sort(function (a, b) {
      return a.score === null || b.score === null
      ? (a.score === null) - (b.score === null) : a.score - b.score;
    });
    function axisText(text, at, anchor) {
      plot.axis.push({ at: at, anchor: anchor, text: element('*text', {}, text, plot.svg) });
    }
    if (group.median !== null) {
      axisText('median ' + ps(group.median), plot.x(group.median), 0.5);
      axisText('floor ' + ps(group.floor), plot.x(group.floor), 0.5);
    }
    axisText(ps(lo), MARGIN, 0);
    axisText(ps(hi) + ' PS', WIDTH - MARGIN, 1);
    plots.push(plot);
  });

  var ascent = 10;
  var height = 13;
  var pen = document.createElement('canvas').getContext('2d');
  plots.forEach(function (plot) {
    plot.axis.forEach(function (item) { item.width = item.text.getComputedTextLength(); });
  });
  if (plots.length > 0) {
    var probe = plots[0].axis[0].text;
    var bounds = probe.getBBox();
    ascent = -bounds.y;
    height = bounds.height;
    pen.font = getComputedStyle(probe).font || '11px "DejaVu Sans", sans-serif';
  }
  var pitch = Math.ceil(height) + 3;

  function free(taken, from, to) {
    return taken.every(function (span) { return to <= span[0] || span[1] <= from; });
  }
  // Where in rows (each a list of taken spans) a text of width goes that wants to be at `at`
  // (anchor 0: starting there, 0.5: centred, 1: ending there), or null when in none of the first
  // `most` rows; with leader, in a row whose rows below leave room for a line down at `at`.
  function place(rows, most, at, width, anchors, leader) {
    for (var k = 0; k < most; k++) {
      rows[k] = rows[k] || [];
      var below = true;
      for (var j = k + 1; leader && j < most; j++) {
        below = below && free(rows[j] || [], at - 2, at + 2);
      }
      for (var a = 0; below && a < anchors.length; a++) {
        var x = Math.min(Math.max(at - anchors[a] * width, 0), WIDTH - width);
        if ((!leader || (x <= at && at <= x + width)) &&
            free(rows[k], x - GAP / 2, x + width + GAP / 2)) {
          rows[k].push([x - GAP / 2, x + width + GAP / 2]);
          for (j = k + 1; leader && j < most; j++) {
            rows[j] = rows[j] || [];
            rows[j].push([at - 2, at + 2]);
          }
          return { row: k, x: x };
        }
      }
    }
    return null;
  }

  plots.forEach(function (plot) {
    var rows = [];
    plot.names.forEach(function (name) {
      name.width = pen.measureText(host(name.row)).width + 2;
      name.place = name.score === null || name.width > WIDTH ? null
        : place(rows, LABEL_ROWS, plot.x(name.score), name.width, [0.5, 0, 1], true);
      if (name.place) {
        name.text = element('*text', { class: 'label', x: name.place.x.toFixed(1) }, host(name.row),
          plot.svg);
      }
    });
  });
  var tooWide = [];
  plots.forEach(function (plot) {
    plot.names.forEach(function (name) {
      if (name.place && name.text.getComputedTextLength() > name.width) { tooWide.push(name); }
    });
  });
  tooWide.forEach(function (name) {
    name.text.parentNode.removeChild(name.text);
    name.place = null;
  });

  plots.forEach(function (plot) {
    var svg = plot.svg;
    var used = 0;
    var unnamed = plot.names.filter(function (name) {
      used = name.place ? Math.max(used, name.place.row + 1) : used;
      return !name.place;
    });
    var top = used * pitch + 6; // of the band
    var axisY = top + BAND + 4;
    var markY = function (r) { return top + 4 + jitter(host(r)) * (BAND - 8); };
    plot.names.forEach(function (name) {
      if (!name.place) { return; }
      var y = name.place.row * pitch + 1;
      name.text.setAttribute('y', (y + ascent).toFixed(1));
      name.text.addEventListener('click', showHost.bind(null, name.row));
      var x = plot.x(name.score).toFixed(1);
      element('*line', {
        class: 'leader', x1: x, x2: x, y1: (y + height + 1).toFixed(1),
        y2: (markY(name.row) - 5).toFixed(1)
      }, undefined, svg);
    });
    var below = [];
    plot.axis.forEach(function (item) {
      var spot = place(below, plot.axis.length, item.at, item.width, [item.anchor], false);
      item.text.setAttribute('x', spot.x.toFixed(1));
      item.text.setAttribute('y', (axisY + 3 + spot.row * pitch + ascent).toFixed(1));
    });
    var axisRows = below.filter(function (row) { return row.length > 0; }).length;
    var bottom = axisY + 3 + axisRows * pitch + 2;
    svg.setAttribute('height', bottom);
    svg.setAttribute('viewBox', '0 0 ' + WIDTH + ' ' + bottom);
    element('*line', { class: 'axis', x1: MARGIN, x2: WIDTH - MARGIN, y1: axisY, y2: axisY },
      undefined, svg);
    if (plot.group.median !== null) {
      [['median', plot.group.median], ['floor', plot.group.floor]].forEach(function (line) {
        var x = plot.x(line[1]).toFixed(1);
        element('*line', { class: line[0], x1: x, x2: x, y1: top - 4, y2: axisY }, undefined, svg);
      });
    }
    var marks = element('*g', {}, undefined, svg);
    var flaggedMarks = [];
    plot.scored.forEach(function (item) {
      var mark = element('*circle',
        { class: 'mark', cx: plot.x(item.score).toFixed(1), cy: markY(item.row).toFixed(1), r: 3 });
      mark.row = item.row;
      if (flagged(item.row)) {
        mark.setAttribute('class', 'mark flagged');
        mark.setAttribute('r', 4.5);
        mark.addEventListener('click', showHost.bind(null, item.row));
        flaggedMarks.push(mark);
      } else {
        if (disturbed(item.row)) { mark.setAttribute('class', 'mark disturbed'); }
        marks.appendChild(mark);
      }
    });
    flaggedMarks.forEach(function (mark) { marks.appendChild(mark); });
    // A mark's host and score as its tooltip, made when the pointer first comes over it.
    marks.addEventListener('mouseover', function (event) {
      var mark = event.target;
      if (mark.row !== undefined && !mark.firstChild) {
        element('*title', {}, host(mark.row) + ' ' + cell(scoreColumn, mark.row) + ' PS', mark);
      }
    });
    if (unnamed.length > 0) {
      var list = element('div', { class: 'unnamed' }, undefined, plot.box);
      element('p', {}, unnamed.length + ' flagged ' + (unnamed.length === 1 ? 'node' : 'nodes')
        + (used > 0 ? ' more' : '') + ', slowest first:', list);
      var items = element('ol', {}, undefined, list);
      unnamed.forEach(function (name) {
        var item = element('li', {}, undefined, items);
        element('a', { class: 'host', href: '#nodes' }, host(name.row), item)
          .addEventListener('click', function (event) {
            event.preventDefault();
            showHost(name.row);
          });
        item.appendChild(document.createTextNode(
          name.score === null ? ' no score' : ' ' + cell(scoreColumn, name.row) + ' PS'));
      });
    }
  });

  // What the page saw while loading, for whoever checks it: errors, resources fetched,
  // milliseconds to the load event.
  function report() {
    document.body.setAttribute('data-errors', window.reportErrors);
    document.body.setAttribute('data-resources', performance.getEntriesByType('resource').length);
  }
  filter();
  report();
  window.addEventListener('load', function () {
    report();
    document.body.setAttribute('data-load-ms', Math.round(performance.now()));
  });
})();

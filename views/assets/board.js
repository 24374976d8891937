// Keeps the board true: asks for what changed every two seconds, and says when nobody answers.
'use strict';
const period = 2000, element = id => document.getElementById(id), body = document.body;
let serial = body.dataset.serial, clock = Number(body.dataset.clock), answered = Date.now(), clockAt = Date.now();
let stands = body.classList.contains('stale');

const twoDigits = number => String(Math.floor(number)).padStart(2, '0');
const clockText = seconds => twoDigits(seconds / 3600 % 24) + ':' + twoDigits(seconds / 60 % 60);

function tick() {
  element('clock').textContent = clockText(clock + (Date.now() - clockAt) / 1000);
  const age = Math.max(0, Math.round((Date.now() - answered) / 1000));
  element('updated').textContent = 'Page updated ' + (age < 120 ? age + ' s ago' : Math.floor(age / 60) + ' min ago');
}

function showAway(text) {
  element('away').hidden = text === '';
  if (element('away').textContent !== text) element('away').textContent = text;
  body.classList.toggle('stale', stands || text !== '');
}

function show(board) {
  // Machines that came or went change the page's shape.
  if (board.machines !== element('tiles').querySelectorAll('article').length) return location.reload();
  for (const [id, html] of Object.entries(board.tiles)) {
    const tile = element(id);
    if (tile === null) return location.reload();
    tile.outerHTML = html;
  }
  serial = board.serial;
  clock = board.clock;
  clockAt = Date.now();
  stands = board.alert !== '';
  element('head').innerHTML = board.head;
  element('status').textContent = board.status;
  if (element('alert').innerHTML !== board.alert) element('alert').innerHTML = board.alert;
  element('alert').hidden = !stands;
  showAway(board.database === '' ? '' : board.database + ' Below is what was known then.');
  if (board.database === '') answered = Date.now();
  tick();
}

async function refresh() {
  try {
    const answer = await fetch('/live?since=' + serial, {cache: 'no-store', signal: AbortSignal.timeout(8000)});
    if (!answer.ok) throw new Error(answer.status);
    show(await answer.json());
  } catch {
    const then = clock + (answered - clockAt) / 1000;
    showAway('No answer from the server since ' + clockText(then) + '. Below is what was known then.');
  }
  setTimeout(refresh, period);
}
setInterval(tick, 1000);
setTimeout(refresh, period);

// Log page: the library's log, newest first, fetched a page at a time so that
// a database of millions of rows opens as fast as a small one.
(function () {
  'use strict';

  const { getJson, postJson, el } = window.bvgeoCommon;
  const FILTERS = ['NONE', 'FENCE', 'ZONE', 'GENERAL', 'LOCATION', 'REQUESTS', 'TRIGGER', 'CLIENT'];
  const PAGE_ROWS = 500;
  // Fetch the next page while a few screens of text are still left, so
  // scrolling rarely hits the end.
  const PREFETCH_PX = 1500;
  const NOTICE_MS = 4000;

  const $ = (id) => document.getElementById(id);
  const logArea = $('log');
  const filterLine = $('filter');
  const picker = $('filter-picker');
  const restartDialog = $('restart-dialog');
  const nameField = $('restart-name');
  const errorDialog = $('error-dialog');
  const notice = $('notice');

  let filter = 'NONE';
  // Bumped by every reload; a page that arrives for an older one is dropped
  // instead of being appended to the wrong list.
  let generation = 0;
  let oldestId = null;
  let more = true;
  let loading = false;
  let rowsShown = 0;
  let noticeTimer = 0;

  function setState(state) {
    logArea.dataset.state = state;
    logArea.dataset.rows = String(rowsShown);
  }

  function showStatus(text) {
    $('status').textContent = text;
  }

  function reload() {
    generation += 1;
    logArea.textContent = '';
    logArea.scrollTop = 0;
    oldestId = null;
    more = true;
    loading = false;
    rowsShown = 0;
    return loadMore();
  }

  async function loadMore() {
    if (loading || !more) return;
    const mine = generation;
    loading = true;
    setState('loading');
    const query = new URLSearchParams({ filter, limit: String(PAGE_ROWS) });
    if (oldestId !== null) query.set('before', String(oldestId));
    let page;
    try {
      page = await getJson(`/api/logs?${query}`);
    } catch (error) {
      if (mine !== generation) return;
      // Left retryable: the next scroll or Refresh asks again.
      loading = false;
      setState('error');
      showStatus(`Log not loaded: ${error.message}`);
      return;
    }
    if (mine !== generation) return;
    const rows = Array.isArray(page.rows) ? page.rows : [];
    if (rows.length > 0) {
      logArea.append(document.createTextNode(rows.map((row) => `${row.message ?? ''} \n`).join('')));
      oldestId = rows[rows.length - 1].id;
      rowsShown += rows.length;
    }
    more = page.more === true && rows.length > 0;
    loading = false;
    setState(more ? 'ready' : 'complete');
    showStatus('');
    loadIfNearEnd();
  }

  function loadIfNearEnd() {
    const left = logArea.scrollHeight - logArea.scrollTop - logArea.clientHeight;
    if (left < PREFETCH_PX) loadMore();
  }

  function openPicker(open) {
    picker.hidden = !open;
    filterLine.setAttribute('aria-expanded', String(open));
    if (open) picker.querySelector(`[data-filter="${filter}"]`).focus();
  }

  function choose(choice) {
    filter = choice;
    filterLine.textContent = `FILTER: ${choice}`;
    for (const option of picker.querySelectorAll('[role="option"]')) {
      option.setAttribute('aria-selected', String(option.dataset.filter === choice));
    }
    openPicker(false);
    filterLine.focus();
    reload();
  }

  function showError(text) {
    $('error-message').textContent = text;
    if (!errorDialog.open) errorDialog.showModal();
  }

  function showNotice(text) {
    notice.textContent = text;
    notice.hidden = false;
    clearTimeout(noticeTimer);
    noticeTimer = setTimeout(() => { notice.hidden = true; }, NOTICE_MS);
  }

  async function askForRestart() {
    const button = $('restart');
    button.disabled = true;
    let name = '';
    try {
      const answer = await getJson('/api/restart/default-name');
      name = typeof answer.name === 'string' ? answer.name : '';
    } catch (error) {
      // The user can still type a name of their own.
      showStatus(`No default name: ${error.message}`);
    } finally {
      button.disabled = false;
    }
    nameField.value = name;
    restartDialog.returnValue = '';
    restartDialog.showModal();
    nameField.select();
  }

  async function restart(name) {
    let answer;
    try {
      answer = await postJson('/api/restart', { name });
    } catch (error) {
      showError(`Restart failed: ${error.message}`);
      return;
    }
    if (answer.ok === true) {
      await reload();
    } else {
      showError(typeof answer.message === 'string' && answer.message !== '' ? answer.message : 'Unknown error happened');
    }
  }

  // Only a download from the console itself is started: the path comes from
  // the server, and a page that fetched anything it names would be a relay.
  function download(path) {
    const url = new URL(path, window.location.href);
    if (url.origin !== window.location.origin) {
      showError('The report download points away from the console.');
      return;
    }
    const link = el('a', { href: url.href, download: 'bvgeo-report.eml', hidden: '' });
    document.body.append(link);
    link.click();
    link.remove();
  }

  async function sendReport() {
    const button = $('email');
    button.disabled = true;
    showStatus('Sending report…');
    try {
      const answer = await postJson('/api/email', {});
      showStatus('');
      if (answer.sent === true) showNotice('Report sent.');
      else if (typeof answer.download === 'string') download(answer.download);
      else showError(typeof answer.error === 'string' ? answer.error : 'Unknown error happened');
    } catch (error) {
      showStatus('');
      showError(`Sending failed: ${error.message}`);
    } finally {
      button.disabled = false;
    }
  }

  for (const name of FILTERS) {
    const option = el('li', { role: 'option', tabindex: '-1', 'data-filter': name, 'aria-selected': String(name === filter) }, name);
    option.addEventListener('click', () => choose(name));
    option.addEventListener('keydown', (event) => {
      if (event.key === 'Enter' || event.key === ' ') {
        event.preventDefault();
        choose(name);
      } else if (event.key === 'ArrowDown' || event.key === 'ArrowUp') {
        event.preventDefault();
        const sibling = event.key === 'ArrowDown' ? option.nextElementSibling : option.previousElementSibling;
        if (sibling) sibling.focus();
      }
    });
    picker.append(option);
  }
  filterLine.addEventListener('click', () => openPicker(picker.hidden));
  document.addEventListener('keydown', (event) => {
    if (event.key === 'Escape' && !picker.hidden) openPicker(false);
  });
  document.addEventListener('click', (event) => {
    if (!picker.hidden && !picker.contains(event.target) && event.target !== filterLine) openPicker(false);
  });

  $('refresh').addEventListener('click', reload);
  logArea.addEventListener('scroll', loadIfNearEnd, { passive: true });
  window.addEventListener('resize', loadIfNearEnd);

  $('restart').addEventListener('click', askForRestart);
  // Enter in the name field means Done; left alone the form would submit with
  // its first button, Cancel.
  nameField.addEventListener('keydown', (event) => {
    if (event.key === 'Enter') {
      event.preventDefault();
      restartDialog.querySelector('form').requestSubmit($('restart-done'));
    }
  });
  restartDialog.addEventListener('close', () => {
    if (restartDialog.returnValue === 'done') restart(nameField.value);
  });
  $('email').addEventListener('click', sendReport);

  reload();
})();
